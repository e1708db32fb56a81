// What the tests against the board's drivers and chips share.
#pragma once

#include "support/ScriptedKernel.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

/// Nowhere else: a machine of its own may have a memory module's EEPROM at the address that is written to here.
class OnBoard : public testing::Test
{
protected:
    void SetUp() override;
};

/// One call, and what comes of it in system calls, answers of the kernel and log lines.
struct Row {
    const char* title;
    std::function<void(ScriptedKernel&)> call;
    std::string timeline;
};

void check(const std::vector<Row>& table);

/// Opens a device as recorded: its descriptor is 7.
template <class Device>
bool opened(Device& device)
{
    const RecordedKernel kernel;
    return device.init();
}

/// "00 00 00"
std::string zeros(size_t count);

/// Writes a line to a file of sysfs.
void tell(const std::string& file, const std::string& line);

/// What a command prints.
std::string outputOf(const std::string& command);

/// Fails the test when it has not come true after 10 s.
void await(const std::string& what, const std::function<bool()>& isTrue);

bool exists(const std::string& path);

/// Whether the host sends back what comes out of the UART, as tests/board/run has it.
bool hostAnswers();
