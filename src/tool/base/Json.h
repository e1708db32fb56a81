// Values of JSON, made where the results are and written by Output.
#pragma once

#include <serialComm/SyncSerialBase.h>

#include <initializer_list>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

class Fields;

/// A value: null, a boolean, a number, text, or an array or object of these.
class Json
{
public:
    Json() = default;
    Json(std::nullptr_t) {}
    Json(const char* text) : written(text), isText(true) {}
    Json(std::string text) : written(std::move(text)), isText(true) {}
    Json(double number);
    Json(const ByteArray& bytes);
    Json(const std::vector<Json>& values);
    Json(const Fields& object);
    template <typename T, std::enable_if_t<std::is_integral_v<T>, int> = 0>
    Json(T number) : written(std::to_string(number))
    {
        if constexpr (std::is_same_v<T, bool>)
            written = number ? "true" : "false";
    }

    /// As it is written: {"name": "value"}. Bytes of text that are not UTF-8 are the replacement character.
    [[nodiscard]] std::string text() const;

private:
    std::string written = "null";
    bool isText = false;  ///< not yet in quotation marks
};

/// Null where the text is empty: it is not known.
inline Json textOrNull(const std::string& text)
{
    return text.empty() ? Json{} : Json{text};
}

/// The fields of an object, in their order.
class Fields
{
public:
    Fields(std::initializer_list<std::pair<std::string, Json>> given = {}) : fields(given) {}

    /// A field's value; a new field, behind the others, if there is none of that name.
    Json& operator[](const std::string& name);

    /// A field in front of the others.
    void prepend(const std::string& name, const Json& value) { fields.insert(fields.begin(), {name, value}); }

    [[nodiscard]] std::string text() const;

private:
    std::vector<std::pair<std::string, Json>> fields;
};
