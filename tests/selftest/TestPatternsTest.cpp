#include "TestPatterns.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

TEST(TestPatterns, BurstsHaveEveryValueAndSizesUpToTheLongest)
{
    const std::vector<TestBurst> bursts = testBursts(4096);
    EXPECT_EQ(256U, std::set<uint8_t>(bursts[0].bytes.begin(), bursts[0].bytes.end()).size());
    size_t longest = 0;
    for (const TestBurst& burst : bursts) {
        longest = std::max(longest, burst.bytes.size());
        EXPECT_NE(std::string::npos, burst.name.find(", " + std::to_string(burst.bytes.size()) + " byte"))
            << burst.name;
    }
    EXPECT_EQ(4096U, longest);
    EXPECT_EQ(bursts.back().bytes, testBursts(4096).back().bytes) << "the same each time";
    for (const TestBurst& burst : testBursts(1)) {
        EXPECT_EQ(1U, burst.bytes.size());
    }
}

TEST(TestPatterns, WhatCameBackIsClassified)
{
    const ByteArray sent = {0x12, 0x34, 0x56, 0x78, 0x9a};
    const struct {
        ByteArray got;
        const char* description;
        const char* spi;
    } table[] = {
        {{}, "nothing came back of 5 bytes", ""},
        {{0xff, 0xff, 0xff, 0xff, 0xff}, "byte 0: sent 12, got ff; 5 bytes of 5 differ", "all ff: MISO floats"},
        {{0, 0, 0, 0, 0},
         "byte 0: sent 12, got 00; 5 bytes of 5 differ",
         "all 00: MISO is held low, or floats with a pull-down"},
        {{0x09, 0x1a, 0x2b, 0x3c, 0x4d},
         "byte 0: sent 12, got 09; 5 bytes of 5 differ",
         "shifted by one bit: try another mode"},
        {{0x89, 0x1a, 0x2b, 0x3c, 0x4d},
         "byte 0: sent 12, got 89; 5 bytes of 5 differ",
         "shifted by one bit: try another mode"},
        {{0x24, 0x68, 0xac, 0xf1, 0x35},
         "byte 0: sent 12, got 24; 5 bytes of 5 differ",
         "shifted by one bit: try another mode"},
        {{0x24, 0x68, 0xac, 0xf1, 0x15}, "byte 0: sent 12, got 24; 5 bytes of 5 differ", ""},
        {{0x12, 0x34, 0x57, 0x78, 0x9a}, "byte 2: sent 56, got 57; 1 byte of 5 differs", ""},
        {{0x12, 0x35, 0x56, 0x78, 0x9b}, "byte 1: sent 34, got 35; 2 bytes of 5 differ", ""},
        {{0x12, 0x56, 0x78, 0x9a}, "byte 1: 1 byte of 5 lost", ""},
        {{0x12, 0x34, 0x56}, "byte 3: 2 bytes of 5 lost", ""},
        {{0x12, 0x34, 0x00, 0x56, 0x78, 0x9a}, "byte 2: 1 byte more than the 5 sent", ""},
        {{0x12, 0x57, 0x78, 0x9b}, "byte 1: sent 34, got 57; 4 bytes of 5 differ", ""},
    };
    for (const auto& row : table) {
        const auto found = difference(sent, row.got);
        ASSERT_TRUE(found) << row.description;
        EXPECT_EQ(row.description, describe(*found, sent.size()));
        EXPECT_EQ(row.spi, spiCause(found->kind)) << row.description;
    }
    EXPECT_FALSE(difference(sent, sent));
    EXPECT_FALSE(difference({0xff, 0xff}, {0xff, 0xff}));
}

/// A shift must not be taken for one where the pattern cannot show it.
TEST(TestPatterns, APatternThatCannotTellIsNotTakenForAShift)
{
    EXPECT_EQ(Difference::Kind::Changed, difference({0x01}, {0x02})->kind);
    EXPECT_EQ(Difference::Kind::Changed, difference({0xff, 0xff, 0xff, 0xff}, {0x7f, 0xff, 0xff, 0xff})->kind);
}

TEST(TestPatterns, EachFaultIsFoundByTheBursts)
{
    const auto kindsOf = [](ByteArray (*fault)(ByteArray)) {
        std::multiset<Difference::Kind> kinds;
        for (const TestBurst& burst : testBursts(4096)) {
            if (const auto found = difference(burst.bytes, fault(burst.bytes))) {
                kinds.insert(found->kind);
            }
        }
        return kinds;
    };
    const size_t all = testBursts(4096).size();
    EXPECT_EQ(all, kindsOf([](ByteArray bytes) {
                       bytes[bytes.size() / 2] ^= 0x10;
                       return bytes;
                   }).count(Difference::Kind::Changed))
        << "a flipped bit";
    EXPECT_EQ(all - 1, kindsOf([](ByteArray bytes) {
                           bytes.erase(bytes.begin() + static_cast<ptrdiff_t>(bytes.size() / 2));
                           return bytes;
                       }).count(Difference::Kind::Lost))
        << "a lost byte, but in the burst of one";
    EXPECT_GE(kindsOf([](ByteArray bytes) {
                  for (size_t i = bytes.size(); i-- > 0;) {
                      bytes[i] = static_cast<uint8_t>(bytes[i] >> 1 | (i > 0 ? bytes[i - 1] << 7 : 0));
                  }
                  return bytes;
              }).count(Difference::Kind::Late),
              all - 6)
        << "a shifted bit, but in constant and in very short bursts";
}
