// The kernel's ring buffer, page by page: the records of a page, and how many were lost before it. Pure functions; a
// page that ends early or contradicts itself yields the records before the fault.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

namespace watch
{

struct Record {
    uint64_t time;  ///< ns, of the buffer's clock
    const uint8_t* data;
    size_t size;
};

struct Page {
    std::vector<Record> records;  ///< of the bytes that were given
    bool lostBefore = false;      ///< the kernel dropped records before this page
    uint64_t lost = 0;            ///< how many; 0 if it does not say
    bool damaged = false;         ///< what follows the records cannot be read
};

/// @param commitSize Size of the page header's second field, as in events/header_page: 8 on a 64-bit kernel, else 4.
Page readPage(const uint8_t* data, size_t size, size_t commitSize);

}  // namespace watch
