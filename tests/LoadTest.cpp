// A host without dbglog_scopedFunction() that is not linked to the library and loads it at run time.
#include "serialComm/I2c.h"

#include "support/Process.h"

#include <dlfcn.h>
#include <stdlib.h>

#include <gtest/gtest.h>
#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <string>
#include <type_traits>

static std::string pathOfLibrary()
{
    char* self = realpath("/proc/self/exe", nullptr);
    const std::string program = self;
    free(self);
    return program.substr(0, program.rfind('/')) + "/../lib/libvexo_serialComm.so";
}

TEST(Load, ThreeHundredRoundsLeakNothing)
{
    const std::string library = pathOfLibrary();
    const auto rounds = [&](int count) {
        for (int i = 0; i < count; ++i) {
            void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
            ASSERT_NE(nullptr, handle) << dlerror();
            ASSERT_EQ(0, dlclose(handle));
            ASSERT_EQ(nullptr, dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD)) << "still loaded";
        }
    };
    rounds(30);
    [[maybe_unused]] const long before = resourcesInUse().residentKiB;
    rounds(300);
#ifndef __SANITIZE_ADDRESS__  // it keeps freed memory for a while, and detects leaks itself
    EXPECT_LT(resourcesInUse().residentKiB - before, 300);
#endif
}

class LineKeeper : public log4cplus::Appender
{
public:
    ~LineKeeper() override { destructorImpl(); }
    void close() override { closed = true; }
    std::string lines;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override { lines += event.getMessage() + "\n"; }
};

TEST(Load, WithoutTheHostsFunctionATraceLineContainsTheSignature)
{
    const log4cplus::SharedAppenderPtr appender{new LineKeeper};
    log4cplus::Logger logger = log4cplus::Logger::getInstance("SerialComm");
    logger.addAppender(appender);
    logger.setAdditivity(false);
    logger.setLogLevel(log4cplus::TRACE_LOG_LEVEL);

    void* handle = dlopen(pathOfLibrary().c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, handle) << dlerror();
    const auto construct = reinterpret_cast<void (*)(void*, const std::string&, int)>(
        dlsym(handle, "_ZN3I2cC1ERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEi"));
    const auto init = reinterpret_cast<bool (*)(void*)>(dlsym(handle, "_ZN3I2c4initEv"));
    const auto destroy = reinterpret_cast<void (*)(void*)>(dlsym(handle, "_ZN3I2cD1Ev"));

    std::aligned_storage_t<sizeof(I2c), alignof(I2c)> device;
    construct(&device, "/dev/no-such-bus", 0x50);
    EXPECT_FALSE(init(&device));
    destroy(&device);
    dlclose(handle);

    EXPECT_EQ("Enter virtual bool I2c::init(): path: /dev/no-such-bus address 80\n"
              "Failed to open i2c device: /dev/no-such-bus\n",
              static_cast<LineKeeper&>(*appender).lines);
    logger.removeAllAppenders();
}
