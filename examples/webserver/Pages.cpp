#include "examples/webserver/Pages.h"

#include <algorithm>
#include <charconv>

namespace WebServer {

namespace {

constexpr unsigned kMaxRows = 1000;

std::string Html(std::string_view body) {
    std::string page = "<!DOCTYPE html>\n<title>metrics</title>\n";
    page.append(body);
    return page;
}

std::string Index(std::string_view) {
    return Html("<p>See the <a href=\"/table?rows=20\">table</a>.</p>\n");
}

// The number behind "?rows=", at most kMaxRows; 10 when there is none.
unsigned Rows(std::string_view query) {
    constexpr std::string_view kName = "?rows=";
    unsigned rows = 10;
    if (query.substr(0, kName.size()) == kName) {
        query.remove_prefix(kName.size());
        std::from_chars(query.data(), query.data() + query.size(), rows);
    }
    return std::min(rows, kMaxRows);
}

std::string Table(std::string_view query) {
    std::string body = "<table>\n";
    for (unsigned row = 1, rows = Rows(query); row <= rows; ++row) {
        body += "<tr><td>" + std::to_string(row) + "</td><td>" + std::to_string(row * row) + "</td></tr>\n";
    }
    return Html(body + "</table>\n");
}

std::string BadRequest(std::string_view) {
    return Html("<p>This is no request.</p>\n");
}

std::string NotFound(std::string_view) {
    return Html("<p>There is no such page.</p>\n");
}

std::string MethodNotAllowed(std::string_view) {
    return Html("<p>Pages can only be read.</p>\n");
}

}  // namespace

Page FindPage(std::string_view target) {
    const std::string_view path = target.substr(0, target.find('?'));
    if (path == "/") return {200, Index};
    if (path == "/table") return {200, Table};
    return ErrorPage(404);
}

Page ErrorPage(unsigned status) {
    switch (status) {
        case 404: return {status, NotFound};
        case 405: return {status, MethodNotAllowed};
        default: return {400, BadRequest};
    }
}

}  // namespace WebServer
