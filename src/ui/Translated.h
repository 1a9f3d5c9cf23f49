// The translation function for texts of the window that are not written in a member of a class.
#pragma once

#include <QCoreApplication>
#include <QString>

namespace Tessarin::UI {

[[nodiscard]] inline QString translated(const char *text)
{
    return QCoreApplication::translate("Tessarin::UI::MainWindow", text);
}

} // namespace Tessarin::UI
