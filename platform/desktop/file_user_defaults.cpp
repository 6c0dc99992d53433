#include "platform/desktop/file_user_defaults.h"

#include "platform/desktop/settings_file.h"
#include "platform/desktop/user_folders.h"
#include "platform/standard_error.h"

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <set>
#include <utility>

namespace quillbox {

namespace {

constexpr const char* kFileName = "settings.json";

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
        if (contents.condition == SettingsFile::Condition::Damaged)
            printToStandardError("quillbox-helper: the settings in " + file.path()
                                 + " cannot be used: " + contents.problem);
        values = std::move(contents.object);
    }

    ~FileUserDefaults() override { write(); }

    FileUserDefaults(const FileUserDefaults&) = delete;
    FileUserDefaults& operator=(const FileUserDefaults&) = delete;

    std::optional<std::string> stringForKey(const std::string& key) const override
    {
        const QJsonValue value = values.value(keyOf(key));
        if (value.isString())
            return value.toString().toStdString();
        if (!value.isUndefined())
            reportKind(key, "a string");
        return std::nullopt;
    }

    std::optional<bool> boolForKey(const std::string& key) const override
    {
        const QJsonValue value = values.value(keyOf(key));
        if (value.isBool())
            return value.toBool();
        if (value.isDouble() && (value.toDouble() == 0 || value.toDouble() == 1))
            return value.toDouble() == 1;
        if (!value.isUndefined())
            reportKind(key, "true or false");
        return std::nullopt;
    }

    void setString(const std::string& key, const std::string& value) override
    {
        set(key, QString::fromStdString(value));
    }

    void setBool(const std::string& key, bool value) override { set(key, value); }

private:
    void set(const std::string& key, const QJsonValue& value)
    {
        const QString name = keyOf(key);
        // An unchanged value is not written, but an earlier change may still have to be.
        if (values.value(name) != value) {
            values.insert(name, value);
            unwritten.insert(name, value);
        }
        if (unwritten.isEmpty() || std::exchange(isWriteAsked, true))
            return;
        mainQueue->async([this, guard = std::weak_ptr(alive)] {
            if (!guard.expired())
                write();
        });
    }

    /// Merges the values that were set since the last write into the current contents of the file,
    /// so that other changes to the file are kept.
    void write()
    {
        isWriteAsked = false;
        if (unwritten.isEmpty() || file.path().empty())
            return;
        SettingsFile::Contents contents = file.read();
        const QJsonObject before = contents.object;
        for (auto entry = unwritten.constBegin(); entry != unwritten.constEnd(); ++entry)
            contents.object.insert(entry.key(), entry.value());
        const bool isStored =
            contents.object == before && contents.condition == SettingsFile::Condition::Good;
        if (isStored || file.replace(contents.object, contents.condition))
            unwritten = {};
    }

    void reportKind(const std::string& key, const char* expected) const
    {
        if (reported.insert(key).second)
            printToStandardError("quillbox-helper: the setting \"" + key + "\" in " + file.path()
                                 + " is not " + expected + " and is ignored");
    }

    const SettingsFile file;
    const std::shared_ptr<DispatchQueue> mainQueue;
    QJsonObject values;
    QJsonObject unwritten;
    bool isWriteAsked = false;
    mutable std::set<std::string> reported;
    const std::shared_ptr<int> alive = std::make_shared<int>(0);
};

} // namespace

std::string settingsPath(const std::string& bundleIdentifier)
{
    const std::string folder = configurationFolder();
    if (folder.empty())
        return {};
    return folder + '/' + bundleIdentifier + '/' + kFileName;
}

std::unique_ptr<UserDefaults> makeFileUserDefaults(std::string path,
                                                   std::shared_ptr<DispatchQueue> mainQueue)
{
    return std::make_unique<FileUserDefaults>(std::move(path), std::move(mainQueue));
}

} // namespace quillbox
