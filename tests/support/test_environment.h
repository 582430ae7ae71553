#pragma once
// What every test program sets up before its first test: QStandardPaths in test mode and a home
// folder of its own, so no test can touch, or search, the real user's files; the offscreen
// platform unless one is asked for; modules loaded from this build's output folder unless the
// environment names another. The Qt application is the program's choice: logic tests run under
// a QCoreApplication (support/test_main.cpp), window tests under a QApplication
// (support/widget_test_main.cpp), and a suite that draws text makes a QGuiApplication in its
// own main, which the linker then takes instead of the support library's.

#include <gtest/gtest.h>

#include <QTemporaryDir>

class TestEnvironment {
public:
    TestEnvironment();

private:
    QTemporaryDir home_;
};

template <class Application> int RunTests(int argc, char **argv)
{
    const TestEnvironment environment;
    Application app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
