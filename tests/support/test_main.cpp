// Logic tests make no widgets and need no display: a QCoreApplication is all they get, so a
// test that reaches for a window fails here rather than passing on the offscreen platform.
#include "test_environment.h"

#include <QCoreApplication>

int main(int argc, char **argv)
{
    return RunTests<QCoreApplication>(argc, argv);
}
