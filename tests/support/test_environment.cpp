#include "test_environment.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

TestEnvironment::TestEnvironment() : home_(QDir::tempPath() + "/pw-home-XXXXXX")
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("PAGEWRIGHT_MODULE_DIR"))
        qputenv("PAGEWRIGHT_MODULE_DIR", PAGEWRIGHT_TEST_MODULE_DIR);
    QStandardPaths::setTestModeEnabled(true);
    qputenv("HOME", QFile::encodeName(home_.path()));
}
