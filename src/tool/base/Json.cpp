#include "base/Json.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace
{

/// The elements' texts with commas between them.
template <typename Elements, typename TextOf>
std::string joined(const Elements& elements, TextOf textOf)
{
    std::string text;
    for (const auto& element : elements)
        text += (text.empty() ? "" : ",") + textOf(element);
    return text;
}

std::string quoted(const std::string& text)
{
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

Json::Json(double number) : written(nlohmann::json(number).dump()) {}

Json::Json(const ByteArray& bytes)
    : written('[' + joined(bytes, [](uint8_t byte) { return std::to_string(byte); }) + ']')
{
}

Json::Json(const std::vector<Json>& values)
    : written('[' + joined(values, [](const Json& value) { return value.text(); }) + ']')
{
}

Json::Json(const Fields& object) : written(object.text()) {}

std::string Json::text() const
{
    return isText ? quoted(written) : written;
}

Json& Fields::operator[](const std::string& name)
{
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const auto& field) { return field.first == name; });
    return found != fields.end() ? found->second : fields.emplace_back(name, Json{}).second;
}

std::string Fields::text() const
{
    return '{' + joined(fields, [](const auto& field) { return quoted(field.first) + ':' + field.second.text(); }) +
           '}';
}
