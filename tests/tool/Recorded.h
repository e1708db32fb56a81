// Pages of the kernel's ring buffer, recorded on the board, and the formats of their events.
#pragma once

#include "watch/Events.h"

#include <stdint.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

inline std::string contentOfFile(const std::string& path)
{
    std::ifstream file{path};
    return {std::istreambuf_iterator<char>{file}, {}};
}

/// A page as it is read, from its text in hex.
inline std::vector<uint8_t> recordedPage(const std::string& name)
{
    std::string digits;
    std::istringstream lines{contentOfFile(RECORDED "/" + name + ".page")};
    for (std::string line; std::getline(lines, line);)
        digits += line;
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

/// Learns the events of the board's kernel; returns how many.
inline size_t learnAll(watch::Decoder& decoder)
{
    decoder.learnHeader(contentOfFile(RECORDED "/header_page"));
    const std::string formats = contentOfFile(RECORDED "/formats");
    size_t learnt = 0;
    const std::string buses[] = {"i2c", "spi"};
    for (const std::string& bus : buses) {
        for (const watch::EventName& event : watch::eventsOf(bus)) {
            const size_t title = formats.find(std::string{"name: "} + event.name + '\n');
            const size_t end = formats.find("\n==", title);
            if (title != std::string::npos && decoder.learn(event, formats.substr(title, end - title)))
                ++learnt;
        }
    }
    return learnt;
}
