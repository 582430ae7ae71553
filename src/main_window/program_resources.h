#pragma once
// The files compiled into the program (resources/resources.qrc): the loading window's
// hourglass and the program's icon.

#include <QIcon>

namespace pw {

// Makes the compiled-in files readable under ":/". They live in a static library that nothing
// refers to by name, so the linker would leave them out unless they are registered. Cheap
// after the first call.
void RegisterProgramResources();

// The program's own icon, drawn at every size the desktop asks for (16 to 256 pixels).
QIcon ProgramIcon();

} // namespace pw
