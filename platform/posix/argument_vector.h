#pragma once

#include <string>
#include <utility>
#include <vector>

namespace quillbox {

/// A command as a null-terminated `argv`, as required by exec(3) and posix_spawn(3).
class ArgumentVector final {
public:
    /// The first element is the program.
    explicit ArgumentVector(std::vector<std::string> command) : texts_(std::move(command))
    {
        pointers_.reserve(texts_.size() + 1);
        for (std::string& text : texts_)
            pointers_.push_back(text.data());
        pointers_.push_back(nullptr);
    }

    ArgumentVector(const ArgumentVector&) = delete;
    ArgumentVector& operator=(const ArgumentVector&) = delete;

    char* const* data() const { return pointers_.data(); }
    const char* program() const { return pointers_.front(); }

private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};

} // namespace quillbox
