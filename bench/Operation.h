// What is measured: one operation of one contestant, ready to be run any number of times.
#pragma once

#include "serialComm/SyncSerialBase.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

struct Operation {
    std::string name;        ///< "UART write", "I2C readRegister"
    size_t size;             ///< Bytes transferred.
    std::string contestant;  ///< "bare", "fresh vector", "serialComm" or the name of a peer.

    /// Number of runs in a batch, and the actions before it (bytes arrive for the runs) and after it (written bytes are
    /// read). Only the runs are measured.
    size_t batch = 1000;
    std::function<void(size_t runs)> before = [](size_t) {};
    std::function<void(size_t runs)> after = [](size_t) {};

    Operation(std::string operationName, size_t bytes, std::string whose)
        : name(std::move(operationName)), size(bytes), contestant(std::move(whose))
    {
    }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;
    virtual ~Operation() = default;

    virtual void run() = 0;

    [[nodiscard]] std::string label() const { return name + "/" + std::to_string(size) + "/" + contestant; }
};

using Operations = std::vector<std::unique_ptr<Operation>>;

/// An operation whose run() is only this call, so that callgrind's count for run() is the cost of the operation.
template <class Call>
struct Measured final : Operation {
    Call call;

    Measured(std::string operationName, size_t bytes, std::string whose, Call measuredCall)
        : Operation(std::move(operationName), bytes, std::move(whose)), call(std::move(measuredCall))
    {
    }
    void run() override
    {
        if (!call()) {
            fprintf(stderr, "%s failed\n", label().c_str());
            exit(EXIT_FAILURE);
        }
    }
};

/// Adds an operation; `call` says whether it succeeded.
template <class Call>
Operation& add(Operations& operations, std::string name, size_t size, std::string who, Call call)
{
    operations.push_back(std::make_unique<Measured<Call>>(std::move(name), size, std::move(who), std::move(call)));
    return *operations.back();
}

/// Fills in the operations of the program: the bare calls and serialComm's.
void addOperations(Operations& operations);

/// Adds the same operations of other libraries, in programs that link them.
[[gnu::weak]] void addPeers(Operations& operations);

/// All of these, and one named "empty" that does nothing: the cost of measuring itself.
Operations allOperations();
