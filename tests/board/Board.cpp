#include "Board.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <thread>

void OnBoard::SetUp()
{
    std::ifstream file{"/proc/cmdline"};
    std::string line;
    std::getline(file, line);
    if (line.find(" board=build/board/run/") == std::string::npos) {
        GTEST_SKIP() << "this machine is not the board";
    }
    recordLog();
}

void check(const std::vector<Row>& table)
{
    for (const Row& row : table) {
        SCOPED_TRACE(row.title);
        RecordedKernel kernel;
        row.call(kernel);
        EXPECT_EQ(row.timeline, kernel.timeline());
    }
}

std::string zeros(size_t count)
{
    return hex(ByteArray(count).data(), count);
}

void tell(const std::string& file, const std::string& line)
{
    const int fd = open(file.c_str(), O_WRONLY);
    EXPECT_EQ(static_cast<ssize_t>(line.size()), write(fd, line.data(), line.size()))
        << file << ": " << strerror(errno);
    close(fd);
}

std::string outputOf(const std::string& command)
{
    FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    for (int character = fgetc(pipe); character != EOF; character = fgetc(pipe)) {
        output += static_cast<char>(character);
    }
    pclose(pipe);
    return output;
}

void await(const std::string& what, const std::function<bool()>& isTrue)
{
    for (int tries = 0; !isTrue(); ++tries) {
        ASSERT_LT(tries, 1000) << "not within 10 s: " << what;
        std::this_thread::sleep_for(std::chrono::milliseconds{10});
    }
}

bool exists(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

bool hostAnswers()
{
    return getenv("UART_PEER") != nullptr;
}
