#include "platform/desktop/settings/file_user_defaults.h"

#include "platform/desktop/settings/settings_file.h"
#include "platform/values/standard_error.h"
#include "platform/values/text.h"

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <algorithm>
#include <utility>

namespace quillbox {

namespace {

QString keyOf(const std::string& key)
{
    return QString::fromStdString(key);
}

class FileUserDefaults final : public UserDefaults {
public:
    FileUserDefaults(std::string path, std::shared_ptr<DispatchQueue> queue)
        : file(std::move(path)), mainQueue(std::move(queue))
    {
        if (file.path().empty()) {
            printToStandardError(
                "quillbox-helper: settings cannot be stored: there is no home folder");
            return;
        }
        SettingsFile::Contents contents = file.read();
        if (!contents.problem.empty()) {
            whyUnread = file.path() + ": " + contents.problem;
            printToStandardError("quillbox-helper: the settings in " + file.path()
                                 + " cannot be used: " + contents.problem);
        }
        values = std::move(contents.object);
    }

    ~FileUserDefaults() override { FileUserDefaults::save(); }

    FileUserDefaults(const FileUserDefaults&) = delete;
    FileUserDefaults& operator=(const FileUserDefaults&) = delete;

    std::string stringForKey(const std::string& key, const std::string& standard) override
    {
        const QJsonValue value = values.value(keyOf(key));
        if (value.isString())
            return value.toString().toStdString();
        useStandard(key, value, QString::fromStdString(standard), "a string",
                    inDoubleQuotes(standard));
        return standard;
    }

    bool boolForKey(const std::string& key, bool standard) override
    {
        const QJsonValue value = values.value(keyOf(key));
        if (value.isBool())
            return value.toBool();
        if (value.isDouble() && (value.toDouble() == 0 || value.toDouble() == 1))
            return value.toDouble() == 1;
        useStandard(key, value, standard, "true or false", standard ? "true" : "false");
        return standard;
    }

    std::string choiceForKey(const std::string& key,
                             std::span<const std::string_view> choices) override
    {
        const QJsonValue value = values.value(keyOf(key));
        std::string found = value.toString().toStdString();
        if (value.isString() && std::find(choices.begin(), choices.end(), found) != choices.end())
            return found;
        std::string expected;
        for (const std::string_view choice : choices)
            expected += (expected.empty() ? "one of " : ", ") + inDoubleQuotes(choice);
        std::string standard(choices.front());
        useStandard(key, value, QString::fromStdString(standard), expected,
                    inDoubleQuotes(standard));
        return standard;
    }

    bool setString(const std::string& key, const std::string& value) override
    {
        return set(key, QString::fromStdString(value));
    }

    bool setBool(const std::string& key, bool value) override { return set(key, value); }

    bool save() override
    {
        isWriteAsked = false;
        if (!unwritten.isEmpty() && !file.path().empty() && file.write(unwritten, values))
            unwritten = {};
        return unwritten.isEmpty();
    }

    std::string problem() const override { return whyUnread; }

private:
    bool set(const std::string& key, const QJsonValue& value)
    {
        const QString name = keyOf(key);
        // An unchanged value is not written, but an earlier change may still have to be.
        const bool isChange = values.value(name) != value;
        if (isChange) {
            values.insert(name, value);
            unwritten.insert(name, value);
        }
        if (!unwritten.isEmpty() && !std::exchange(isWriteAsked, true))
            mainQueue->async([this, guard = std::weak_ptr(alive)] {
                if (!guard.expired())
                    save();
            });
        return isChange;
    }

    /// A standard value counts as set where the file has, or may have, another value, so that
    /// setting the same one again does not replace that.
    void useStandard(const std::string& key, const QJsonValue& found, const QJsonValue& standard,
                     const std::string& expected, const std::string& shown)
    {
        if (!found.isUndefined())
            printToStandardError("quillbox-helper: the setting \"" + key + "\" in " + file.path()
                                 + " is not " + expected + "; its default, " + shown
                                 + ", is used instead");
        if (!found.isUndefined() || !whyUnread.empty())
            values.insert(keyOf(key), standard);
    }

    const SettingsFile file;
    const std::shared_ptr<DispatchQueue> mainQueue;
    QJsonObject values; ///< what holds: stored, set, or the default of a value of a wrong type
    QJsonObject unwritten;
    std::string whyUnread; ///< empty unless there was a file that could not be used
    bool isWriteAsked = false;
    const std::shared_ptr<int> alive = std::make_shared<int>(0);
};

} // namespace

std::unique_ptr<UserDefaults> makeFileUserDefaults(std::string path,
                                                   std::shared_ptr<DispatchQueue> mainQueue)
{
    return std::make_unique<FileUserDefaults>(std::move(path), std::move(mainQueue));
}

} // namespace quillbox
