// Any page of the kernel's ring buffer is decoded and shown. The input is a page, of the events that are in formats.
#include "../tool/Recorded.h"

#include "watch/Assembler.h"
#include "watch/Files.h"
#include "watch/Render.h"
#include "watch/Summary.h"

#include <stdlib.h>

namespace
{

void show(watch::Transfer transfer, watch::Summary& summary)
{
    transfer.device = transfer.i2c() != nullptr ? "/dev/i2c-4" : "/dev/spidev2.0";
    watch::textOf(transfer, "0");
    watch::fieldsOf(transfer, 0);
    watch::packetsOf(transfer, transfer.time);
    summary.add(transfer, 100'000);
    watch::sessionLine(transfer);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static watch::Decoder decoder;
    static const size_t learnt = learnAll(decoder);
    if (learnt == 0)
        abort();
    watch::Assembler assembler;
    watch::Summary summary;
    const watch::Page page = decoder.page(data, size);
    for (const watch::Record& record : page.records) {
        if (const auto event = decoder.event(record))
            assembler.add(*event);
    }
    assembler.endAll();
    for (watch::Transfer& transfer : assembler.take())
        show(std::move(transfer), summary);
    if (summary.text(1).empty())
        abort();
    return 0;
}
