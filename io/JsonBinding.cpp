#include "io/JsonBinding.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <cstdint>
#include <iostream>

namespace io {

namespace {

using rttr::instance;
using rttr::type;
using rttr::variant;
using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

// The parser's stack starts small: request bodies are shallow.
constexpr std::size_t kParseStackCapacity = 1024;

variant extract_basic_types(rapidjson::Value& json_value) {
    switch (json_value.GetType()) {
        case rapidjson::kStringType:
            // Up to the first NUL, as the C string.
            return std::string(json_value.GetString());
        case rapidjson::kFalseType:
        case rapidjson::kTrueType:
            return json_value.GetBool();
        case rapidjson::kNumberType:
            // The order of these tests is the tie-break: 7 -> int, 3.0 -> double.
            if (json_value.IsInt()) {
                return json_value.GetInt();
            }
            if (json_value.IsDouble()) {
                return json_value.GetDouble();
            }
            if (json_value.IsUint()) {
                return json_value.GetUint();
            }
            if (json_value.IsInt64()) {
                return json_value.GetInt64();
            }
            return json_value.GetUint64();
        case rapidjson::kNullType:
        case rapidjson::kObjectType:
        case rapidjson::kArrayType:
            break;
    }
    return variant();
}

// A default object of t, or an invalid variant when t cannot be default-constructed.
variant construct_default(const type& t) {
    rttr::constructor ctor = t.get_constructor();
    for (const auto& candidate : t.get_constructors()) {
        if (candidate.get_instantiated_type() == t && candidate.get_parameter_infos().empty()) {
            ctor = candidate;
        }
    }
    return ctor.is_valid() ? ctor.invoke() : variant();
}

variant extract_value(rapidjson::Value::MemberIterator& member, const type& t) {
    auto& json_value = member->value;
    variant extracted = extract_basic_types(json_value);
    if (extracted.convert(t)) {
        return extracted;
    }
    if (json_value.IsObject()) {
        variant object = construct_default(t);
        if (object.is_valid()) {
            fromjson_recursively(object, json_value);
        }
        return object;
    }
    return variant();
}

// Whether objects of t (or of what t wraps) have properties that a JSON object can fill.
bool has_properties(const type& t) {
    const type raw = t.is_wrapper() ? t.get_wrapped_type() : t;
    return !raw.get_properties().empty();
}

void write_array_recursively(rttr::variant_sequential_view& view, rapidjson::Value& json_array) {
    view.set_size(json_array.Size());
    const type value_type = view.get_value_type();
    // An element the value type cannot take is refused on its kind alone, before any variant is
    // made: a list of a million objects costs a string list no more than its parse.
    const bool takes_arrays = value_type.is_sequential_container();
    const bool takes_objects = has_properties(value_type);
    for (rapidjson::SizeType i = 0; i < json_array.Size(); ++i) {
        auto& element = json_array[i];
        if (element.IsArray()) {
            if (!takes_arrays) {
                continue;
            }
            auto nested = view.get_value(i).create_sequential_view();
            if (nested.is_valid()) {
                write_array_recursively(nested, element);
            }
        } else if (element.IsObject()) {
            if (!takes_objects) {
                continue;
            }
            variant held = view.get_value(i);
            variant wrapped = held.extract_wrapped_value();
            fromjson_recursively(wrapped, element);
            view.set_value(i, wrapped);
        } else {
            variant extracted = extract_basic_types(element);
            if (extracted.convert(value_type)) {
                view.set_value(i, extracted);
            }
        }
    }
}

void write_associative_view_recursively(rttr::variant_associative_view& view,
                                        rapidjson::Value& json_array) {
    for (rapidjson::SizeType i = 0; i < json_array.Size(); ++i) {
        auto& element = json_array[i];
        if (element.IsObject()) {
            auto key = element.FindMember("key");
            auto value = element.FindMember("value");
            if (key != element.MemberEnd() && value != element.MemberEnd()) {
                variant key_var = extract_value(key, view.get_key_type());
                variant value_var = extract_value(value, view.get_value_type());
                if (key_var.is_valid() && value_var.is_valid()) {
                    view.insert(key_var, value_var);
                }
            }
        } else {
            variant extracted = extract_basic_types(element);
            if (extracted.is_valid() && extracted.convert(view.get_key_type())) {
                view.insert(extracted);
            }
        }
    }
}

bool write_variant(const variant& var, JsonWriter& writer);
void to_json_recursively(const instance& obj, JsonWriter& writer);

bool write_atomic(const type& t, const variant& var, JsonWriter& writer) {
    if (t == type::get<bool>()) {
        return writer.Bool(var.to_bool());
    }
    if (t == type::get<char>() || t == type::get<int8_t>() || t == type::get<int16_t>() ||
        t == type::get<int32_t>()) {
        return writer.Int(var.to_int32());
    }
    if (t == type::get<int64_t>() || t == type::get<long>() || t == type::get<long long>()) {
        return writer.Int64(var.to_int64());
    }
    if (t == type::get<uint8_t>() || t == type::get<uint16_t>() || t == type::get<uint32_t>()) {
        return writer.Uint(var.to_uint32());
    }
    if (t == type::get<uint64_t>() || t == type::get<unsigned long>() ||
        t == type::get<unsigned long long>()) {
        return writer.Uint64(var.to_uint64());
    }
    if (t == type::get<float>() || t == type::get<double>()) {
        // JSON has no NaN or infinity; the writer would refuse them and write nothing.
        const double number = var.to_double();
        if (std::isfinite(number)) {
            return writer.Double(number);
        }
    }
    writer.Null();
    return false;
}

bool write_array(const rttr::variant_sequential_view& view, JsonWriter& writer) {
    bool ok = true;
    writer.StartArray();
    for (const auto& item : view) {
        ok = write_variant(item.extract_wrapped_value(), writer) && ok;
    }
    writer.EndArray();
    return ok;
}

// The mirror of the reading side: keys alone for sets, {"key":..,"value":..} pairs for maps.
bool write_associative(const rttr::variant_associative_view& view, JsonWriter& writer) {
    bool ok = true;
    writer.StartArray();
    for (const auto& item : view) {
        if (view.is_key_only_type()) {
            ok = write_variant(item.first.extract_wrapped_value(), writer) && ok;
        } else {
            writer.StartObject();
            writer.Key("key");
            ok = write_variant(item.first.extract_wrapped_value(), writer) && ok;
            writer.Key("value");
            ok = write_variant(item.second.extract_wrapped_value(), writer) && ok;
            writer.EndObject();
        }
    }
    writer.EndArray();
    return ok;
}

// Writes exactly one JSON value; what it cannot represent becomes null and reports false, so
// the text stays well-formed after the caller has written a key.
bool write_variant(const variant& var, JsonWriter& writer) {
    const bool wrapper = var.get_type().is_wrapper();
    const variant value = wrapper ? var.extract_wrapped_value() : var;
    const type t = value.get_type();
    if (t.is_arithmetic()) {
        return write_atomic(t, value, writer);
    }
    if (t.is_enumeration()) {
        bool ok = false;
        const std::string name = value.to_string(&ok);
        if (ok && !name.empty()) {
            return writer.String(name.c_str(), static_cast<rapidjson::SizeType>(name.size()));
        }
        const int64_t number = value.to_int64(&ok);
        if (ok) {
            return writer.Int64(number);
        }
    } else if (t == type::get<std::string>()) {
        const auto& text = value.get_value<std::string>();
        return writer.String(text.c_str(), static_cast<rapidjson::SizeType>(text.size()));
    } else if (value.is_sequential_container()) {
        return write_array(value.create_sequential_view(), writer);
    } else if (value.is_associative_container()) {
        return write_associative(value.create_associative_view(), writer);
    } else if (t.is_class()) {
        to_json_recursively(value, writer);
        return true;
    }
    writer.Null();
    return false;
}

void to_json_recursively(const instance& given, JsonWriter& writer) {
    writer.StartObject();
    const instance obj =
        given.get_type().get_raw_type().is_wrapper() ? given.get_wrapped_instance() : given;
    for (const auto& prop : obj.get_derived_type().get_properties()) {
        if (prop.get_metadata(kNoSerialize)) {
            continue;
        }
        const variant value = prop.get_value(obj);
        if (!value.is_valid()) {
            continue;
        }
        const auto name = prop.get_name();
        writer.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
        if (!write_variant(value, writer)) {
            std::cerr << "cannot serialize property: " << name << std::endl;
        }
    }
    writer.EndObject();
}

}  // namespace

void fromjson_recursively(instance given, rapidjson::Value& json_object) {
    // A scalar or array document has no members to match.
    if (!json_object.IsObject()) {
        return;
    }
    const instance obj =
        given.get_type().get_raw_type().is_wrapper() ? given.get_wrapped_instance() : given;
    for (auto prop : obj.get_derived_type().get_properties()) {
        const auto name = prop.get_name();
        auto member = json_object.FindMember(
            rapidjson::Value(rapidjson::StringRef(name.data(), name.size())));
        if (member == json_object.MemberEnd()) {
            continue;
        }
        const type prop_type = prop.get_type();
        auto& json_value = member->value;
        switch (json_value.GetType()) {
            case rapidjson::kArrayType: {
                // A list registered as a pointer is filled where it is, not as a copy that is
                // then copied again into the object: a long list would cost three times.
                if (prop_type.get_raw_type().is_sequential_container()) {
                    variant value = prop.get_value(obj);
                    auto view = value.create_sequential_view();
                    write_array_recursively(view, json_value);
                    prop.set_value(obj, value);
                } else if (prop_type.is_associative_container()) {
                    variant value = prop.get_value(obj);
                    auto view = value.create_associative_view();
                    write_associative_view_recursively(view, json_value);
                    prop.set_value(obj, value);
                }
                break;
            }
            case rapidjson::kObjectType: {
                variant value = prop.get_value(obj);
                if (value.is_valid()) {
                    fromjson_recursively(value, json_value);
                    prop.set_value(obj, value);
                }
                break;
            }
            default: {
                variant extracted = extract_basic_types(json_value);
                if (extracted.convert(prop_type)) {
                    prop.set_value(obj, extracted);
                }
            }
        }
    }
}

bool from_json(const std::string& json, instance obj) {
    try {
        rapidjson::Document document(nullptr, kParseStackCapacity);
        rapidjson::StringStream stream(json.c_str());
        // Same grammar as the default parse, but a request of a million "[" cannot exhaust the
        // stack of the RPC thread.
        if (document.ParseStream<rapidjson::kParseIterativeFlag>(stream).HasParseError()) {
            return false;
        }
        fromjson_recursively(obj, document);
        return true;
    } catch (...) {
        std::cerr << "Error: Unknow Exception in from_json" << std::endl;
    }
    return false;
}

std::string to_json(instance obj) {
    try {
        rapidjson::StringBuffer buffer;
        JsonWriter writer(buffer);
        to_json_recursively(obj, writer);
        return std::string(buffer.GetString(), buffer.GetSize());
    } catch (...) {
        std::cerr << "Error: Unknown Exception in to_json" << std::endl;
    }
    return std::string();
}

std::string to_json(std::vector<instance>& objs) {
    try {
        for (const auto& obj : objs) {
            if (!obj.is_valid()) {
                return std::string();
            }
        }
        rapidjson::StringBuffer buffer;
        JsonWriter writer(buffer);
        writer.StartArray();
        for (const auto& obj : objs) {
            to_json_recursively(obj, writer);
        }
        writer.EndArray();
        return std::string(buffer.GetString(), buffer.GetSize());
    } catch (...) {
        std::cerr << "Error: Unknown Exception in to_json_vec" << std::endl;
    }
    return std::string();
}

}  // namespace io
