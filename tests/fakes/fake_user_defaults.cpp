#include "tests/fakes/fake_user_defaults.h"

namespace quillbox {

namespace {

template <class Kind>
std::optional<Kind> find(const std::map<std::string, FakeUserDefaults::Value>& values,
                         const std::string& key)
{
    const auto entry = values.find(key);
    if (entry == values.end() || !std::holds_alternative<Kind>(entry->second))
        return std::nullopt;
    return std::get<Kind>(entry->second);
}

} // namespace

void FakeUserDefaults::note(const char* call, const std::string& key) const
{
    if (log)
        log->push_back(call + key);
}

std::optional<std::string> FakeUserDefaults::stringForKey(const std::string& key) const
{
    note("read ", key);
    reads.push_back(key);
    return find<std::string>(values, key);
}

std::optional<bool> FakeUserDefaults::boolForKey(const std::string& key) const
{
    note("read ", key);
    reads.push_back(key);
    return find<bool>(values, key);
}

void FakeUserDefaults::setString(const std::string& key, const std::string& value)
{
    note("write ", key);
    writes.push_back(key);
    values[key] = value;
}

void FakeUserDefaults::setBool(const std::string& key, bool value)
{
    note("write ", key);
    writes.push_back(key);
    values[key] = value;
}

} // namespace quillbox
