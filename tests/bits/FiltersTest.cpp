#include "metrics/bits/Filters.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "metrics/MetricsBitsUtils.h"

namespace Metrics {
namespace {

std::vector<MetricsFilter> Read(const std::string& text) {
    std::istringstream in(text);
    return detail::ReadFilters(in, "/p/filters.xml");
}

TEST(Filters, AFileWrittenByHandJustWorks) {
    const auto filters = Read(
        "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!-- ours: value=\"1\" -->\n<filters>\n"
        "  <filter value = '70'\n          name=\"Disk &amp; Net\" mnemonic='disk' symbol='kDisk'/>\n"
        "  <filter value='33' name='No mnemonic'/>\n  <filter value='34' mnemonic='noname'/>\n"
        "  <group><any value='x' name='Words' mnemonic='words'></any></group>\n</filters>\n");
    ASSERT_EQ(filters.size(), 2U);
    EXPECT_EQ(filters[0].value, 70);
    EXPECT_EQ(filters[0].bit, 0x40U) << "70 & 63 is 6";
    EXPECT_EQ(filters[0].name, "Disk & Net");
    EXPECT_EQ(filters[0].mnemonic, "disk");
    EXPECT_EQ(filters[0].symbol, "kDisk");
    EXPECT_EQ(filters[1].bit, 1U) << "no number is 0";
}

TEST(Filters, WhatCannotBeReadIsThrown) {
    const auto message = [](const std::string& text) -> std::string {
        try {
            Read(text);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(message("<f value='' name='n' mnemonic='m'/>"), "empty filter value in /p/filters.xml");
    EXPECT_EQ(message("<f name='n'/>"), "empty filter value in /p/filters.xml");
    EXPECT_EQ(message("<f value='1'"), "Error: invalid XML tag: f value='1'");
    EXPECT_EQ(message(""), "");
}

// The only test here that uses the file beside the executable, and the table.
TEST(Filters, JoinTheNamesOfTheBits) {
    const std::filesystem::path file = detail::FilterFilePath();
    ASSERT_EQ(file.filename(), "filters.xml");
    std::ofstream(file)
        << "<f value='33' name='Disk' mnemonic='disk'/>"
           "<f value='40' name='Mine' mnemonic='all'/><f value='41' name='Time' mnemonic='time'/>";
    const std::size_t read = MetricsBitsUtils::GetFilters().size();
    const auto map = MetricsBitsUtils::GetMetricsBitsMap();
    std::filesystem::remove(file);
    EXPECT_EQ(read, 3U);
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
