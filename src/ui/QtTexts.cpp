// The catalogue and what it lacks.
#include "ui/QtTexts.h"

#include <QByteArrayView>
#include <QLibraryInfo>

#include <array>

namespace Tessarin::UI {

namespace {

struct Word
{
    QByteArrayView context;
    QByteArrayView source;
    QStringView text;
};

constexpr std::array words{
    Word{"QAbstractFileIconProvider", "Folder", u"Pasta"},
    Word{"QAbstractFileIconProvider", "File Folder", u"Pasta"},
    Word{"QAbstractFileIconProvider", "File", u"Arquivo"},
    Word{"QAbstractFileIconProvider", "%1 File", u"Arquivo %1"},
    Word{"QAbstractFileIconProvider", "Drive", u"Unidade"},
    Word{"QAbstractFileIconProvider", "Alias", u"Atalho"},
    Word{"QAbstractFileIconProvider", "Shortcut", u"Atalho"},
    Word{"QAbstractFileIconProvider", "Unknown", u"Desconhecido"},
    Word{"QFileDialog", "Date Modified", u"Data de modificação"},
    Word{"QFileDialog", "Computer", u"Computador"},
    Word{"QFileDialog", "%1 already exists.\nDo you want to replace it?",
         u"%1 já existe.\nDeseja substituí-lo?"},
    Word{"QShortcut", "Return", u"Enter"},
    Word{"QWidgetTextControl", "Undo", u"Desfazer"},
};

} // namespace

QtTexts::QtTexts()
{
    static_cast<void>(
        load(QStringLiteral("qtbase_pt_BR"), QLibraryInfo::path(QLibraryInfo::TranslationsPath)));
}

bool QtTexts::isEmpty() const
{
    return false;
}

QString QtTexts::translate(const char *context, const char *sourceText, const char *disambiguation,
                           int n) const
{
    for (const Word &word : words) {
        if (word.context == context && word.source == sourceText)
            return word.text.toString();
    }
    return QTranslator::translate(context, sourceText, disambiguation, n);
}

} // namespace Tessarin::UI
