#include "program_resources.h"

static void initPagewrightResources()
{
    Q_INIT_RESOURCE(resources);
}

namespace pw {

void RegisterProgramResources()
{
    static const bool registered = (initPagewrightResources(), true);
    Q_UNUSED(registered);
}

QIcon ProgramIcon()
{
    RegisterProgramResources();
    QIcon icon;
    for (int size : {16, 22, 24, 32, 48, 64, 128, 256})
        icon.addFile(QString(":/icons/pagewright-%1.png").arg(size), QSize(size, size));
    return icon;
}

} // namespace pw
