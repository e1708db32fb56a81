// Whole files, where "-" is standard input or output.
#pragma once

#include <serialComm/SyncSerialBase.h>

#include <stddef.h>

#include <string>

/// The content of a file, at most `most` bytes.
ByteArray readFile(const std::string& path, size_t most);

/// An output file that is opened before its new content is known: a wrong path fails at once, and the old content is
/// kept until replace() is called.
class OutputFile
{
public:
    explicit OutputFile(const std::string& name);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void replace(const ByteArray& content);

    /// Behind what replace() has written.
    void append(const ByteArray& content);

private:
    std::string path;
    int fd;
};
