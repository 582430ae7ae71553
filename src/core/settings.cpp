#include "settings.h"

#include "failure_log.h"
#include "property_bag.h"
#include "ui_services.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QScopeGuard>

namespace pw {

namespace {

QString readAs(const QVariant &v, const QString *)
{
    return CStr(v);
}
uint8_t readAs(const QVariant &v, const uint8_t *)
{
    return CByte(v);
}
int16_t readAs(const QVariant &v, const int16_t *)
{
    return CInt(v);
}
int32_t readAs(const QVariant &v, const int32_t *)
{
    return CLng(v);
}

QByteArray readWholeFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw RuntimeError::fromNumber(75);
    return file.readAll();
}

} // namespace

QString Settings::settingsFolder() const
{
    return storagePath_ + "/Settings";
}
QString Settings::settingsFile() const
{
    return storagePath_ + "/Settings/settings.ini";
}

bool Settings::LoadSettings()
{
    bool result = false;
    PW_PROCEDURE("LoadSettings", Unit::classModule("Settings"));
    guarded(pwTail, [&] {
        PW_STEP;
        const QString file = settingsFile();
        const QString folder = settingsFolder();
        PW_STEP;
        if (!QFileInfo(folder).isDir() && !QDir().mkdir(folder))
            throw RuntimeError::fromNumber(76);
        PW_STEP;
        if (!QFileInfo(file).isFile())
            return;
        PW_STEP;
        PropertyBag bag;
        bag.setContents(readWholeFile(file));
        // A key the file lacks reads as "" or 0, not as its default.
#define PW_SETTINGS_READ(type, key, def)                                                           \
    PW_STEP;                                                                                       \
    key##_ = readAs(bag.ReadProperty(QStringLiteral(#key)), &key##_);
        PW_SETTINGS_KEYS(PW_SETTINGS_READ)
#undef PW_SETTINGS_READ
        result = true;
    });
    return result;
}

void Settings::SaveSettings()
{
    QByteArray block;
    QString file;
    try {
        PropertyBag bag;
#define PW_SETTINGS_WRITE(type, key, def) bag.WriteProperty(QStringLiteral(#key), key##_);
        PW_SETTINGS_KEYS(PW_SETTINGS_WRITE)
#undef PW_SETTINGS_WRITE
        block = bag.Contents();
        file = settingsFile();
        if (!QFileInfo(settingsFolder()).isDir() && !QDir().mkpath(settingsFolder()))
            throw RuntimeError::fromNumber(76);
        if (!QFileInfo::exists(file)) {
            QFile create(file);
            if (!create.open(QIODevice::WriteOnly))
                throw RuntimeError::fromNumber(75);
        }
    } catch (const RuntimeError &e) {
        // Memory keeps the new value, the file keeps the old one.
        ui_.MsgBox(e.description(), vbInformation);
        return;
    }
    try {
        writeBlock(file, block);
    } catch (const RuntimeError &) {
        // The save made by a recovery has no recovery of its own: its failure goes on to
        // whoever assigned the setting.
        if (recovering_)
            throw;
        recoverFromFailedWrite(file);
    }
}

void Settings::recoverFromFailedWrite(const QString &path)
{
    // Deliberately harsh: a failed write throws the user's settings away, in memory and on
    // disk. A step that fails here (a file this folder won't let go, a second failed write)
    // goes to whoever assigned the setting and leaves the rest as it was.
    recovering_ = true;
    const auto reset = qScopeGuard([this] { recovering_ = false; });
    if (!QFile::remove(path))
        throw RuntimeError::fromNumber(75);
    QFile empty(path);
    if (!empty.open(QIODevice::WriteOnly))
        throw RuntimeError::fromNumber(75);
    empty.close();
    LoadDefaultSettings();
}

namespace {

// Written beside the target and renamed into place, so that a crash never leaves half a block.
bool saveBeside(const QString &path, const QByteArray &block)
{
    QSaveFile out(path);
    return out.open(QIODevice::WriteOnly) && out.write(block) == block.size() && out.commit();
}

} // namespace

void Settings::writeBlock(const QString &path, const QByteArray &block)
{
    if (saveBeside(path, block))
        return;
    // No room for a second file beside it (a folder that takes no new file, a full disk): the
    // file itself still takes the block over its old bytes, and a full disk has room for those.
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite) || file.write(block) != block.size() || !file.flush())
        throw RuntimeError::fromNumber(75);
}

QString HomeFolder()
{
    // QDir::homePath() reads $HOME and falls back to the root when it is unset.
    return QDir::homePath();
}

void Settings::LoadDefaultSettings()
{
    const uint8_t keepDefaultPathCloneDir = IsDefaultPathCloneDir_;
#define PW_SETTINGS_DEFAULT(type, key, def) key##_ = settings_types::type(def);
    PW_SETTINGS_KEYS(PW_SETTINGS_DEFAULT)
#undef PW_SETTINGS_DEFAULT
    // The defaults never touched IsDefaultPathCloneDir: resetting to defaults keeps whether
    // the folder conversion restores its output folder.
    IsDefaultPathCloneDir_ = keepDefaultPathCloneDir;
    SaveSettings();
}

} // namespace pw
