// SPDX-License-Identifier: Apache-2.0
#include "host/schema_check.h"

#include <algorithm>
#include <array>
#include <regex>
#include <stdexcept>
#include <string_view>

namespace vpdd::host {

namespace {

using Json = nlohmann::json;
using Place = Json::json_pointer;
using Result = std::optional<SchemaProblem>;

/// What is being checked, where it stands, and the schema document that references point into.
struct Subject {
    const Json& value;
    const Place& place;
    const Json& schema_document;

    /// "must ..." with the value, unless that has parts.
    Result must(const std::string& rule) const {
        return SchemaProblem{place, "must " + rule + (value.is_structured() ? "" : ", but is " + value.dump())};
    }
};

Result check(const Subject& subject, const Json& schema);

/// The parts of an array or object against one schema each; `schema_of` gives null for a part that is free.
template <class SchemaOf>
Result check_parts(const Subject& subject, SchemaOf schema_of) {
    for (const auto& [key, value] : subject.value.items()) {
        const Json* schema = schema_of(key);
        if (schema == nullptr) continue;
        const Place place = subject.place / key;
        if (Result problem = check({value, place, subject.schema_document}, *schema)) return problem;
    }
    return {};
}

std::string listed(const Json& values) {
    std::string list;
    for (const Json& value : values) list += (list.empty() ? "" : ", ") + value.dump();
    return list;
}

Result check_type(const Subject& subject, const Json& type, const Json&) {
    struct Type {
        std::string_view name, with_article;
        bool (Json::*is_it)() const noexcept;
    };
    constexpr std::array types{
        Type{"object", "an object", &Json::is_object},       Type{"array", "an array", &Json::is_array},
        Type{"string", "a text", &Json::is_string},          Type{"integer", "an integer", &Json::is_number_integer},
        Type{"boolean", "true or false", &Json::is_boolean},
    };
    const auto* wanted = std::ranges::find(types, type.get<std::string_view>(), &Type::name);
    if (wanted == types.end()) throw std::logic_error("schema: unknown type " + type.dump());
    if ((subject.value.*wanted->is_it)()) return {};
    return subject.must("be " + std::string(wanted->with_article));
}

Result check_reference(const Subject& subject, const Json& reference, const Json&) {
    return check(subject, subject.schema_document.at(Place(reference.get<std::string>().substr(1))));
}

/// The alternative that fits best tells what is wrong; when several fit as well, all do.
Result check_any_of(const Subject& subject, const Json& alternatives, const Json&) {
    const auto depth = [](const Place& place) { return std::ranges::count(place.to_string(), '/'); };
    Result best;
    for (const Json& alternative : alternatives) {
        Result problem = check(subject, alternative);
        if (!problem) return {};
        if (!best || depth(problem->place) > depth(best->place)) {
            best = problem;
        } else if (problem->place == best->place) {
            best->reason += ", or " + problem->reason;
        }
    }
    return best;
}

Result check_const(const Subject& subject, const Json& constant, const Json&) {
    return subject.value == constant ? Result{} : subject.must("be " + constant.dump());
}

Result check_enum(const Subject& subject, const Json& values, const Json&) {
    if (std::ranges::find(values, subject.value) != values.end()) return {};
    return subject.must("be one of " + listed(values));
}

Result check_minimum(const Subject& subject, const Json& minimum, const Json&) {
    return subject.value >= minimum ? Result{} : subject.must("be at least " + minimum.dump());
}

Result check_maximum(const Subject& subject, const Json& maximum, const Json&) {
    return subject.value <= maximum ? Result{} : subject.must("be at most " + maximum.dump());
}

Result check_min_length(const Subject& subject, const Json& minimum, const Json&) {
    const bool fits = subject.value.get<std::string_view>().size() >= minimum;
    return fits ? Result{} : subject.must("have at least " + minimum.dump() + " characters");
}

Result check_max_length(const Subject& subject, const Json& maximum, const Json&) {
    const bool fits = subject.value.get<std::string_view>().size() <= maximum;
    return fits ? Result{} : subject.must("have at most " + maximum.dump() + " characters");
}

Result check_pattern(const Subject& subject, const Json& pattern, const Json&) {
    // Beyond any text of a server; the matching recurses with every character.
    constexpr std::size_t longest_text = 1024;
    const std::string& text = subject.value.get_ref<const std::string&>();
    if (text.size() <= longest_text && std::regex_search(text, std::regex(pattern.get<std::string>()))) return {};
    return subject.must("match " + pattern.get<std::string>());
}

Result check_items(const Subject& subject, const Json& schema, const Json&) {
    return check_parts(subject, [&](const std::string&) { return &schema; });
}

Result check_min_items(const Subject& subject, const Json& minimum, const Json&) {
    return subject.value.size() >= minimum ? Result{} : subject.must("have at least " + minimum.dump() + " elements");
}

Result check_max_items(const Subject& subject, const Json& maximum, const Json&) {
    return subject.value.size() <= maximum ? Result{} : subject.must("have at most " + maximum.dump() + " elements");
}

std::string names_of(const Json& schema) {
    std::string names;
    for (const auto& [name, unused] : schema.at("properties").items()) names += (names.empty() ? "" : ", ") + name;
    return names;
}

Result check_min_properties(const Subject& subject, const Json& minimum, const Json& schema) {
    if (subject.value.size() >= minimum) return {};
    return subject.must("have at least " + minimum.dump() + " of " + names_of(schema));
}

Result check_max_properties(const Subject& subject, const Json& maximum, const Json& schema) {
    if (subject.value.size() <= maximum) return {};
    return subject.must("have at most " + maximum.dump() + " of " + names_of(schema));
}

Result check_required(const Subject& subject, const Json& names, const Json&) {
    for (const Json& name : names)
        if (!subject.value.contains(name)) return subject.must("have " + name.dump());
    return {};
}

Result check_dependencies(const Subject& subject, const Json& dependencies, const Json&) {
    for (const auto& [name, needed] : dependencies.items()) {
        if (subject.value.contains(name)) {
            if (const Result problem = check_required(subject, needed, {}))
                return subject.must("have " + listed(needed) + " beside \"" + name + '"');
        }
    }
    return {};
}

Result check_properties(const Subject& subject, const Json& properties, const Json&) {
    return check_parts(subject, [&](const std::string& name) -> const Json* {
        const auto schema = properties.find(name);
        return schema == properties.end() ? nullptr : &*schema;
    });
}

Result check_additional_properties(const Subject& subject, const Json& schema_of_others, const Json& schema) {
    const auto is_known = [&](const std::string& name) {
        return schema.contains("properties") && schema["properties"].contains(name);
    };
    if (schema_of_others.is_object()) {
        return check_parts(subject,
                           [&](const std::string& name) { return is_known(name) ? nullptr : &schema_of_others; });
    }
    for (const auto& [name, unused] : subject.value.items())
        if (!is_known(name)) return SchemaProblem{subject.place / name, "unknown; known are " + names_of(schema)};
    return {};
}

Result check_property_names(const Subject& subject, const Json& schema, const Json&) {
    for (const auto& [name, unused] : subject.value.items()) {
        const Json text = name;
        const Place place = subject.place / name;
        if (Result problem = check({text, place, subject.schema_document}, schema)) return problem;
    }
    return {};
}

struct Keyword {
    std::string_view name;
    /// Gets the keyword's value and the schema in which it stands; null for a keyword that forbids nothing.
    Result (*check)(const Subject&, const Json&, const Json&);
};

// In the order in which they are checked: what a value is comes before what may be in it.
constexpr std::array keywords{
    Keyword{"$schema", nullptr},
    Keyword{"title", nullptr},
    Keyword{"description", nullptr},
    Keyword{"default", nullptr},
    Keyword{"definitions", nullptr},
    Keyword{"$ref", check_reference},
    Keyword{"anyOf", check_any_of},
    Keyword{"type", check_type},
    Keyword{"const", check_const},
    Keyword{"enum", check_enum},
    Keyword{"minimum", check_minimum},
    Keyword{"maximum", check_maximum},
    Keyword{"minLength", check_min_length},
    Keyword{"maxLength", check_max_length},
    Keyword{"pattern", check_pattern},
    Keyword{"minItems", check_min_items},
    Keyword{"maxItems", check_max_items},
    Keyword{"items", check_items},
    Keyword{"propertyNames", check_property_names},
    Keyword{"additionalProperties", check_additional_properties},
    Keyword{"required", check_required},
    Keyword{"minProperties", check_min_properties},
    Keyword{"maxProperties", check_max_properties},
    Keyword{"dependencies", check_dependencies},
    Keyword{"properties", check_properties},
};

void refuse_unknown_keywords(const Json& schema) {
    for (const auto& [name, unused] : schema.items()) {
        if (std::ranges::find(keywords, name, &Keyword::name) == keywords.end())
            throw std::logic_error("schema: unknown keyword " + name);
    }
}

Result check(const Subject& subject, const Json& schema) {
    refuse_unknown_keywords(schema);
    for (const Keyword& keyword : keywords) {
        const auto value = schema.find(keyword.name);
        if (keyword.check == nullptr || value == schema.end()) continue;
        if (Result problem = keyword.check(subject, *value, schema)) return problem;
    }
    return {};
}

}  // namespace

std::optional<SchemaProblem> schema_problem(const Json& document, const Json& schema) {
    return check({document, Place(), schema}, schema);
}

}  // namespace vpdd::host
