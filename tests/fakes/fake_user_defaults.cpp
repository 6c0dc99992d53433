#include "tests/fakes/fake_user_defaults.h"

#include <algorithm>

namespace quillbox {

namespace {

template <class Kind>
Kind valueIn(const std::map<std::string, FakeUserDefaults::Value>& values, const std::string& key,
             const Kind& standard)
{
    const auto entry = values.find(key);
    const auto* value = entry == values.end() ? nullptr : std::get_if<Kind>(&entry->second);
    return value ? *value : standard;
}

} // namespace

void FakeUserDefaults::note(const char* call, const std::string& key)
{
    if (log)
        log->push_back(call + key);
}

std::string FakeUserDefaults::stringForKey(const std::string& key, const std::string& standard)
{
    note("read ", key);
    reads.push_back(key);
    return valueIn(values, key, standard);
}

bool FakeUserDefaults::boolForKey(const std::string& key, bool standard)
{
    note("read ", key);
    reads.push_back(key);
    return valueIn(values, key, standard);
}

std::string FakeUserDefaults::choiceForKey(const std::string& key,
                                           std::span<const std::string_view> choices)
{
    const std::string found = stringForKey(key, std::string(choices.front()));
    return std::find(choices.begin(), choices.end(), found) != choices.end()
               ? found
               : std::string(choices.front());
}

bool FakeUserDefaults::setString(const std::string& key, const std::string& value)
{
    return set(key, value);
}

bool FakeUserDefaults::setBool(const std::string& key, bool value)
{
    return set(key, value);
}

bool FakeUserDefaults::set(const std::string& key, const Value& value)
{
    note("write ", key);
    writes.push_back(key);
    const auto entry = values.find(key);
    const bool isChange = entry == values.end() || entry->second != value;
    values[key] = value;
    return isChange;
}

} // namespace quillbox
