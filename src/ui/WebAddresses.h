// The project's addresses on the web. They begin with the home page that CMakeLists.txt gives the project.
#pragma once

#include <QString>

namespace Tessarin::UI {

inline QString productWebPage()
{
    return QStringLiteral(TESSARIN_HOME_PAGE);
}
inline QString makerWebPage()
{
    return QStringLiteral(TESSARIN_HOME_PAGE "equipe");
}

} // namespace Tessarin::UI
