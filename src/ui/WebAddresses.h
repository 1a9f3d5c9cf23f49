// The project's addresses on the web, on a reserved domain until its owner names one.
#pragma once

#include <QString>

namespace Tessarin::UI {

inline QString productWebPage()
{
    return QStringLiteral("https://tessarin.example/");
}
inline QString makerWebPage()
{
    return QStringLiteral("https://tessarin.example/equipe");
}

} // namespace Tessarin::UI
