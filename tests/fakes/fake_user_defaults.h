#pragma once

#include "platform/user_defaults.h"

#include <map>
#include <string>
#include <variant>
#include <vector>

namespace quillbox {

/// A settings store in memory.
class FakeUserDefaults final : public UserDefaults {
public:
    using Value = std::variant<std::string, bool>;

    std::string stringForKey(const std::string& key, const std::string& standard) override;
    bool boolForKey(const std::string& key, bool standard) override;
    std::string choiceForKey(const std::string& key,
                             std::span<const std::string_view> choices) override;
    void setString(const std::string& key, const std::string& value) override;
    void setBool(const std::string& key, bool value) override;
    bool save() override { return true; }

    std::map<std::string, Value> values;
    std::vector<std::string> writes;         ///< the keys that were set, in order
    std::vector<std::string> reads;          ///< the keys that were read, in order
    std::vector<std::string>* log = nullptr; ///< if set, records calls as "read KEY", "write KEY"

private:
    void note(const char* call, const std::string& key);
};

} // namespace quillbox
