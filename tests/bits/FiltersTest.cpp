#include "metrics/bits/Filters.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "metrics/MetricsBitsUtils.h"

namespace Metrics {
namespace {

// A line for each filter, or what is thrown.
std::string Read(const std::string& text) {
    std::istringstream in(text);
    std::ostringstream out;
    try {
        for (const MetricsFilter& filter : detail::ReadFilters(in, "/p/filters.xml"))
            out << filter.value << ':' << std::hex << filter.bit << std::dec << ':' << filter.name << ':'
                << filter.mnemonic << ':' << filter.symbol << '\n';
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return out.str();
}

TEST(Filters, AFileWrittenByHandJustWorks) {
    // The bit is the value modulo 64; no number is 0.
    EXPECT_EQ(
        Read("\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!-- ours: value=\"1\" -->\n<filters>\n"
             "  <filter value = '70'\n          name=\"Disk &amp; Net\" mnemonic='disk' symbol='kDisk'/>\n"
             "  <filter value='33' name='No mnemonic'/>\n  <filter value='34' mnemonic='noname'/>\n"
             "  <group><any value='x' name='Words' mnemonic='words'></any></group>\n</filters>\n"),
        "70:40:Disk & Net:disk:kDisk\n0:1:Words:words:\n");
    EXPECT_EQ(Read(""), "");
}

// The file and the line of what is wrong with it.
TEST(Filters, WhatNamesNoValueIsAGroupWhenElementsAreInIt) {
    const std::string filter = "<f value='1' name='n' mnemonic='m'/>", read = "1:2:n:m:\n";
    const std::string empty = "empty filter value in /p/filters.xml, line ";
    const std::pair<std::string, std::string> cases[] = {
        {"<filters name='ours'>\n<group name='g' symbol='s'>" + filter + "</group></filters>", read},
        {"<filters name='ours'><group mnemonic='g'>" + filter + "\n", read},  // never closed
        {"<filters>\n<f name='n'>text <!-- no element --></f></filters>", empty + "2"},
        {"<filters>\n\n<f symbol='n'\n/>" + filter + "</filters>", empty + "3"},
        {"\n<f name='n'>", empty + "2"},
        {"<f value='' name='n' mnemonic='m'>" + filter + "</f>", empty + "1"},
        {"<f\nvalue='1'", "Error: invalid XML tag: f\nvalue='1' in /p/filters.xml, line 1"},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(Read(text), expected) << text;
}

// The only test here that uses the file beside the executable, and the table.
TEST(Filters, JoinTheNamesOfTheBits) {
    const std::filesystem::path file = detail::FilterFilePath();
    ASSERT_EQ(file.filename(), "filters.xml");
    std::ofstream(file)
        << "<f value='33' name='Disk' mnemonic='disk'/>"
           "<f value='40' name='Mine' mnemonic='all'/><f value='41' name='Time' mnemonic='time'/>";
    EXPECT_EQ(MetricsBitsUtils::GetFilters().size(), 3U);
    const auto& map = MetricsBitsUtils::GetMetricsBitsMap();
    std::filesystem::remove(file);
    EXPECT_TRUE(MetricsBitsUtils::GetFilters().empty()) << "no file, no filters";
    using enum MetricsBitFlags;
    EXPECT_EQ(map.at({"disk", Mnemonic | Filter}), 1ULL << 33);
    EXPECT_EQ(map.at({"Disk", Name | Filter}), 1ULL << 33);
    EXPECT_EQ(map.at({"all", Mnemonic | Filter}), 0xFFFFFFFFF0000FFFU) << "first come, first kept";
    EXPECT_EQ(map.at({"time", Mnemonic | Filter}), 1ULL << 41) << "other flags, another entry";
    EXPECT_EQ(MetricsBitsUtils::GetMetricsBitFromMnemonic("disk"), 1ULL << 33);
}

}  // namespace
}  // namespace Metrics
