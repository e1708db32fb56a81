// Whole files, where "-" is standard input or output.
#pragma once

#include <serialComm/SyncSerialBase.h>

#include <stddef.h>

#include <string>

/// The content of a file, at most `most` bytes.
ByteArray readFile(const std::string& path, size_t most);

/// A file for bytes that are not there yet: a wrong path fails at once, and what the file contained is lost only when
/// replace() is called.
class OutputFile
{
public:
    explicit OutputFile(const std::string& name);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void replace(const ByteArray& content);

private:
    std::string path;
    int fd;
};
