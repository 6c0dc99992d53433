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
    bool setString(const std::string& key, const std::string& value) override;
    bool setBool(const std::string& key, bool value) override;
    bool save() override { return isWritable; }
    std::string problem() const override { return unusable; }

    std::map<std::string, Value> values;
    bool isWritable = true;
    std::string unusable;                    ///< what `problem` returns
    std::vector<std::string> writes;         ///< the keys that were set, in order
    std::vector<std::string> reads;          ///< the keys that were read, in order
    std::vector<std::string>* log = nullptr; ///< if set, records calls as "read KEY", "write KEY"

private:
    void note(const char* call, const std::string& key);
    bool set(const std::string& key, const Value& value);
};

} // namespace quillbox
