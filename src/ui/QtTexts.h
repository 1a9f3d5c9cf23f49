// Qt's own texts in Portuguese: its catalogue, and the few words of its dialogs and menus that the catalogue
// lacks or leaves in English.
#pragma once

#include <QTranslator>

namespace Tessarin::UI {

class QtTexts : public QTranslator
{
    Q_OBJECT

public:
    /// Loads the catalogue that is installed with Qt; the words that it lacks are there in any case.
    QtTexts();

    [[nodiscard]] bool isEmpty() const override;
    [[nodiscard]] QString translate(const char *context, const char *sourceText, const char *disambiguation,
                                    int n) const override;
};

} // namespace Tessarin::UI
