#pragma once

#include <functional>
#include <string>

#if __has_include(<gtest/gtest.h>)
#include <gtest/gtest.h>
#else
#include <cstdio>
#include <cstdlib>
#endif

namespace serialComm::testing
{

/// Makes the running test fail; the text says why.
using FailureHandler = std::function<void(const std::string& text)>;

/// Where GoogleTest's headers are installed, a failure of its running test; otherwise the text on standard error and
/// `abort()`. With another test framework, pass a handler of your own: then nothing of GoogleTest is linked.
inline void failTest(const std::string& text)
{
#if __has_include(<gtest/gtest.h>)
    ADD_FAILURE() << text;
#else
    std::fprintf(stderr, "%s\n", text.c_str());
    std::abort();
#endif
}

}  // namespace serialComm::testing
