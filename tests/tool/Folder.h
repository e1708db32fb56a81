// A folder for the files of one test.
#pragma once

#include <gtest/gtest.h>

#include <stdlib.h>

#include <string>

struct Folder {
    Folder() { EXPECT_NE(nullptr, mkdtemp(path.data())); }
    ~Folder() { EXPECT_EQ(0, system(("rm -r " + path).c_str())); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string path = testing::TempDir() + "tool.XXXXXX";
};
