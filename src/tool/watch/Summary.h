// What was seen of each chip and bus: transfers, errors, and how long the bus was busy. Pure.
#pragma once

#include "base/Json.h"
#include "watch/Transfer.h"

#include <stdint.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace watch
{

class Summary
{
public:
    /// @param clockHz Of the bus, if it is known.
    void add(const Transfer& transfer, std::optional<uint32_t> clockHz);

    /// A line for each bus, and below it one for each chip.
    ///
    /// @param watched How long, in ns.
    [[nodiscard]] std::string text(uint64_t watched) const;

    /// The same, an object for each line.
    [[nodiscard]] std::vector<Fields> fields(uint64_t watched) const;

private:
    struct Counts {
        size_t transfers = 0;
        size_t bytes = 0;
        std::map<std::string, size_t> errors;  ///< by the errno's name
        uint64_t busy = 0;                     ///< ns
        uint64_t longest = 0;                  ///< ns

        void add(const Transfer& transfer);
        [[nodiscard]] std::string text() const;
        void fill(Fields& fields) const;
    };
    struct Bus {
        Counts counts;
        std::map<std::string, Counts> chips;
        double onWire = 0;        ///< seconds at the clock
        bool isWireKnown = true;  ///< of all transfers
    };

    std::map<std::string, Bus> buses;
};

}  // namespace watch
