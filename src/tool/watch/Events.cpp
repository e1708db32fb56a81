#include "watch/Events.h"

#include <event-parse.h>
#include <string.h>

#include <algorithm>
#include <map>

namespace watch
{

/// An event's fields by the names under which they are asked for. The names are literals, so that the same one has the
/// same address.
class FieldCache
{
public:
    explicit FieldCache(tep_event* recorded) : event(recorded) {}

    const tep_format_field* find(const char* name)
    {
        for (const auto& [known, field] : fields) {
            if (known == name)
                return field;
        }
        return fields.emplace_back(name, tep_find_any_field(event, name)).second;
    }

private:
    tep_event* event;
    std::vector<std::pair<const char*, const tep_format_field*>> fields;
};

/// The fields of one record. A field that the event does not have, or that lies behind the record's end, is 0 or empty.
class RecordFields
{
public:
    RecordFields(FieldCache& known, const Record& given) : cache(known), record(given) {}

    template <typename Number>
    void get(const char* name, Number& value) const
    {
        const tep_format_field* field = cache.find(name);
        unsigned long long number = 0;
        // libtraceevent reads through a pointer that it does not change.
        if (fits(field) && tep_read_number_field(const_cast<tep_format_field*>(field), record.data, &number) == 0)
            value = static_cast<Number>(isSigned(field) ? extended(number, field->size) : number);
    }

    /// A dynamic array, whose place and length are in the field.
    [[nodiscard]] std::vector<uint8_t> bytes(const char* name) const
    {
        uint32_t place = 0;
        get(name, place);
        const size_t offset = place & 0xffff;
        const size_t length = place >> 16;
        if (offset > record.size)
            return {};
        return {record.data + offset, record.data + offset + std::min(length, record.size - offset)};
    }

    /// The first bytes of a fixed array.
    [[nodiscard]] std::vector<uint8_t> bytes(const char* name, size_t length) const
    {
        const tep_format_field* field = cache.find(name);
        if (!fits(field))
            return {};
        const uint8_t* first = record.data + field->offset;
        return {first, first + std::min(length, static_cast<size_t>(field->size))};
    }

private:
    static bool isSigned(const tep_format_field* field) { return (field->flags & TEP_FIELD_IS_SIGNED) != 0; }

    /// The number with its sign, which the library leaves out.
    static unsigned long long extended(unsigned long long number, int size)
    {
        const unsigned long long sign = 1ULL << (8 * size - 1);
        return (number ^ sign) - sign;
    }

    [[nodiscard]] bool fits(const tep_format_field* field) const
    {
        return field != nullptr && field->offset >= 0 && field->size >= 0 &&
               static_cast<size_t>(field->offset) + static_cast<size_t>(field->size) <= record.size;
    }

    FieldCache& cache;
    const Record& record;
};

namespace
{

I2cEvent i2cEvent(I2cEvent::Kind kind, const RecordFields& fields)
{
    I2cEvent event;
    event.kind = kind;
    fields.get("adapter_nr", event.adapter);
    fields.get(kind == I2cEvent::Kind::result ? "nr_msgs" : "msg_nr", event.number);
    fields.get("addr", event.address);
    fields.get("flags", event.flags);
    fields.get("len", event.length);
    fields.get("ret", event.result);
    if (kind == I2cEvent::Kind::write || kind == I2cEvent::Kind::reply)
        event.bytes = fields.bytes("buf");
    return event;
}

SmbusEvent smbusEvent(SmbusEvent::Kind kind, const RecordFields& fields)
{
    SmbusEvent event;
    event.kind = kind;
    fields.get("adapter_nr", event.adapter);
    fields.get("addr", event.address);
    fields.get("flags", event.flags);
    fields.get("command", event.command);
    fields.get("protocol", event.protocol);
    fields.get("res", event.result);
    event.isRead = kind == SmbusEvent::Kind::read;
    fields.get("read_write", event.isRead);
    size_t length = 0;
    fields.get("len", length);
    if (kind == SmbusEvent::Kind::write || kind == SmbusEvent::Kind::reply)
        event.bytes = fields.bytes("buf", length);
    return event;
}

SpiEvent spiEvent(SpiEvent::Kind kind, const RecordFields& fields)
{
    SpiEvent event;
    event.kind = kind;
    fields.get("bus_num", event.bus);
    fields.get("chip_select", event.chip);
    fields.get("msg", event.message);
    fields.get(kind == SpiEvent::Kind::done ? "frame" : "len", event.length);
    fields.get("actual", event.transferred);
    fields.get("mode", event.mode);
    fields.get("max_speed_hz", event.speedHz);
    fields.get("status", event.status);
    fields.get("enable", event.isActive);
    if (kind == SpiEvent::Kind::transferStart)
        event.sent = fields.bytes("tx_buf");
    if (kind == SpiEvent::Kind::transferStop)
        event.received = fields.bytes("rx_buf");
    return event;
}

using Decode = decltype(Event::what) (*)(const RecordFields&);

template <auto function, auto kind>
constexpr Decode decodes = [](const RecordFields& fields) -> decltype(Event::what) { return function(kind, fields); };

struct Kind {
    const char* name;
    Decode decode;
};

const Kind kinds[] = {
    {"i2c_write", decodes<i2cEvent, I2cEvent::Kind::write>},
    {"i2c_read", decodes<i2cEvent, I2cEvent::Kind::read>},
    {"i2c_reply", decodes<i2cEvent, I2cEvent::Kind::reply>},
    {"i2c_result", decodes<i2cEvent, I2cEvent::Kind::result>},
    {"smbus_write", decodes<smbusEvent, SmbusEvent::Kind::write>},
    {"smbus_read", decodes<smbusEvent, SmbusEvent::Kind::read>},
    {"smbus_reply", decodes<smbusEvent, SmbusEvent::Kind::reply>},
    {"smbus_result", decodes<smbusEvent, SmbusEvent::Kind::result>},
    {"spi_setup", decodes<spiEvent, SpiEvent::Kind::setup>},
    {"spi_set_cs", decodes<spiEvent, SpiEvent::Kind::chipSelect>},
    {"spi_message_submit", decodes<spiEvent, SpiEvent::Kind::submit>},
    {"spi_message_start", decodes<spiEvent, SpiEvent::Kind::start>},
    {"spi_transfer_start", decodes<spiEvent, SpiEvent::Kind::transferStart>},
    {"spi_transfer_stop", decodes<spiEvent, SpiEvent::Kind::transferStop>},
    {"spi_message_done", decodes<spiEvent, SpiEvent::Kind::done>},
};

}  // namespace

const std::vector<EventName>& eventsOf(const std::string& bus)
{
    static const std::vector<EventName> i2c = {
        {"i2c", "i2c_write", true},      {"i2c", "i2c_read", true},        {"i2c", "i2c_reply", true},
        {"i2c", "i2c_result", true},     {"smbus", "smbus_write", false},  {"smbus", "smbus_read", false},
        {"smbus", "smbus_reply", false}, {"smbus", "smbus_result", false},
    };
    static const std::vector<EventName> spi = {
        {"spi", "spi_setup", false},        {"spi", "spi_set_cs", false},        {"spi", "spi_message_submit", true},
        {"spi", "spi_message_start", true}, {"spi", "spi_transfer_start", true}, {"spi", "spi_transfer_stop", true},
        {"spi", "spi_message_done", true},
    };
    return bus == "i2c" ? i2c : spi;
}

struct Decoder::Layout {
    struct Known {
        FieldCache fields;
        Decode decode;
    };

    tep_handle* handle = tep_alloc();
    size_t commitSize = sizeof(long);
    std::map<uint16_t, Known> events;
};

Decoder::Decoder() : layout(std::make_unique<Layout>())
{
    tep_set_loglevel(TEP_LOG_NONE);
}

Decoder::~Decoder()
{
    tep_free(layout->handle);
}

void Decoder::learnHeader(const std::string& text)
{
    std::string copy = text;
    if (tep_parse_header_page(layout->handle, copy.data(), copy.size(), sizeof(long)) != 0)
        return;
    const int size = tep_get_header_page_size(layout->handle);
    if (size == sizeof(uint32_t) || size == sizeof(uint64_t))
        layout->commitSize = static_cast<size_t>(size);
}

bool Decoder::learn(const EventName& name, const std::string& format)
{
    const auto* const kind = std::find_if(std::begin(kinds), std::end(kinds),
                                          [&](const Kind& each) { return std::string{name.name} == each.name; });
    tep_parse_event(layout->handle, format.c_str(), format.size(), name.system);
    tep_event* event = tep_find_event_by_name(layout->handle, name.system, name.name);
    if (kind == std::end(kinds) || event == nullptr || tep_find_common_field(event, "common_pid") == nullptr)
        return false;
    layout->events.insert_or_assign(static_cast<uint16_t>(event->id), Layout::Known{FieldCache{event}, kind->decode});
    return true;
}

Page Decoder::page(const uint8_t* data, size_t size) const
{
    return readPage(data, size, layout->commitSize);
}

std::optional<Event> Decoder::event(const Record& record) const
{
    uint16_t id = 0;
    if (record.size < sizeof id)
        return {};
    memcpy(&id, record.data, sizeof id);
    const auto known = layout->events.find(id);
    if (known == layout->events.end())
        return {};
    const RecordFields fields{known->second.fields, record};
    Event event;
    event.time = record.time;
    fields.get("common_pid", event.thread);
    event.what = known->second.decode(fields);
    return event;
}

}  // namespace watch
