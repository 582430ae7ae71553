#pragma once
// The program's context as start-up makes it, with the storage folder in a sandbox and a
// recorder for the desktop; the failure log goes back to nowhere when the object goes. Also
// settings whose writes fail on demand.

#include "core/app_context.h"
#include "core/failure_log.h"
#include "core/master_layout.h"

#include "recording_ui.h"
#include "sandbox.h"

// Fails the first `failures` writes of the settings block, as a full disk would.
class FailingWriteSettings : public pw::Settings {
public:
    using Settings::Settings;
    int failures = 1;

protected:
    void writeBlock(const QString &path, const QByteArray &block) override
    {
        if (failures-- > 0)
            throw pw::RuntimeError::fromNumber(57);
        Settings::writeBlock(path, block);
    }
};

struct TestContext {
    explicit TestContext(const SandboxDir &box) : context(ui)
    {
        context.FileStoragePath = box.path();
        context.FileStoragePathSlash = box.path() + "/";
        pw::SetErrorLogFolder(box.path());
        context.AppSettings = std::make_unique<pw::Settings>(box.path(), ui);
        context.settings().LoadDefaultSettings();
        context.ColumnList = pw::MakeColumnList();
        context.FilterPatterns = pw::FillFilterPatterns();
    }
    ~TestContext() { pw::SetErrorLogFolder({}); }

    RecordingUi ui;
    pw::AppContext context;
};
