#include "base/Json.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace
{

std::string quoted(const std::string& text)
{
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

Json::Json(double number) : written(nlohmann::json(number).dump()) {}

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
    std::string text = "{";
    for (const auto& [name, value] : fields)
        text += (text.size() == 1 ? "" : ",") + quoted(name) + ':' + value.text();
    return text + '}';
}
