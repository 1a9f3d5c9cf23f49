// An unlocked vault in a directory of its own, and short ways to put bytes into it and get them out.
#pragma once

#include "core/ContainerManager.h"
#include "core/VaultManager.h"

#include <QtTest>

#include <functional>

namespace Tessarin::Tests {

using namespace Qt::Literals::StringLiterals;

inline void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly | QIODevice::Truncate), qPrintable(path));
    QCOMPARE(file.write(bytes), bytes.size());
}

inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? "" + file.readAll() : QByteArray();
}

inline void overwrite(const QString &path, qint64 offset, const QByteArray &bytes)
{
    writeFile(path, readFile(path).replace(offset, bytes.size(), bytes));
}

/// Makes a copy look edited, whatever the resolution of the file system's clock.
inline void edit(const QString &copyPath, const QByteArray &bytes)
{
    static int edits = 0; // Each is later than the one before, however fast they come.
    writeFile(copyPath, bytes);
    QFile copy(copyPath);
    QVERIFY(copy.open(QIODevice::ReadWrite));
    QVERIFY(copy.setFileTime(QDateTime::currentDateTime().addSecs(5 + ++edits), QFile::FileModificationTime));
}

inline QByteArray noise(qsizetype size, quint32 seed)
{
    QByteArray bytes(size, '\0');
    for (char &byte : bytes)
        byte = static_cast<char>((seed = seed * 1664525 + 1013904223) >> 24);
    return bytes;
}

class VaultFixture
{
public:
    explicit VaultFixture(const QString &path = {}, const QString &name = u"tessarin.trvx"_s)
        : root(path.isEmpty() ? folder.path() : path), container(root + u'/' + name)
    {
        if (!vault.createVault(container, password) || !unlock())
            qFatal("no vault can be made in %s", qPrintable(root));
    }

    const QByteArray password = "uma senha bem longa";
    QTemporaryDir folder;
    const QString root;
    const QString container;
    Core::VaultManager vault;

    bool unlock() { return vault.unlockVault(container, password); }
    bool reopen() { return vault.lockVault() && unlock() && QFile::exists(workspaceLock()); }
    QString workspaceLock() const { return vault.workspacePath() + u"/.tessarin-workspace.lock"_s; }

    /// Plays steps such as "put a=bytes; rename a>b; -rmdir c", where "-" is before what must be refused.
    void play(const QString &script)
    {
        for (const QString &step : script.split(u"; "_s)) {
            const bool isRefused = step.startsWith(u'-');
            const QString verb = step.mid(isRefused).section(u' ', 0, 0);
            const QString what = step.section(u' ', 1);
            const QString from = what.section(QRegularExpression(u"[>=]"_s), 0, 0);
            const QString to = what.mid(from.size() + 1);
            qint64 lastDone = 0;
            qint64 lastTotal = 0;
            const auto watch = [&](qint64 done, qint64 total, auto &) {
                QVERIFY(done <= total);
                lastDone = done;
                lastTotal = total;
            };
            const QHash<QString, std::function<bool()>> verbs{
                {u"put"_s, [&] { return put(from, to.toUtf8()); }},
                {u"get"_s, [&] { return !get(from).isNull() && (isRefused || get(from) == to.toUtf8()); }},
                {u"import"_s, [&] { return vault.importFile(from, to, watch); }},
                {u"export"_s, [&] { return vault.exportFile(from, to, watch); }},
                {u"open"_s, [&] { return vault.prepareFileForEditing(from, &copies[from.toLower()]); }},
                {u"edit"_s, [&] { return edit(copies[from.toLower()], to.toUtf8()), true; }},
                {u"damage"_s, [&] { return overwrite(container, placeOf(from), "danificado"), true; }},
                {u"move"_s, [&] { return vault.moveFile(from, to); }},
                {u"rename"_s, [&] { return vault.renameFile(from, to); }},
                {u"delete"_s, [&] { return vault.deleteFile(from); }},
                {u"mkdir"_s, [&] { return vault.createDirectory(from); }},
                {u"mvdir"_s, [&] { return vault.renameDirectory(from, to); }},
                {u"rmdir"_s, [&] { return vault.deleteDirectory(from); }},
                {u"save"_s, [&] { return vault.saveIndex(vault.fileIndex()); }},
                {u"series"_s, [&] { return vault.beginImportSeries(), true; }},
                {u"end"_s, [&] { return vault.endImportSeries(); }},
                {u"compact"_s, [&] { return vault.compactVault(watch, nullptr); }},
                {u"create"_s, [&] { return vault.createVault(container, password); }},
                {u"password"_s,
                 [&] { return vault.changePassword(container, from.toUtf8(), to.toUtf8(), watch); }},
                {u"lock"_s, [&] { return vault.lockVault(watch); }},
                {u"unlock"_s, [&] { return vault.unlockVault(container, what.toUtf8()); }},
                {u"reopen"_s, [&] { return reopen(); }}};
            QVERIFY2(verbs.value(verb)() != isRefused, qPrintable(step));
            QVERIFY2(isRefused || lastDone == lastTotal, qPrintable(step));
        }
    }
    QHash<QString, QString> copies; ///< Where "open" has put files, by their paths in lower case.

    bool put(const QString &vaultPath, const QByteArray &bytes)
    {
        const QString source = folder.filePath(u"source"_s);
        writeFile(source, bytes);
        return vault.importFile(source, vaultPath);
    }

    QByteArray get(const QString &vaultPath) const
    {
        const QString target = folder.filePath(u"target"_s);
        return vault.exportFile(vaultPath, target) ? readFile(target) : QByteArray();
    }

    Core::ContainerDocument document() const
    {
        Core::ContainerDocument read;
        return Core::ContainerManager().readDocument(container, &read) ? read : Core::ContainerDocument();
    }

    /// The folders, with "/" at their ends, and the files, as the index lists them.
    QStringList paths() const
    {
        QStringList paths;
        for (const Core::VaultDirectoryEntry &entry : vault.fileIndex().directories())
            paths << entry.path + u'/';
        for (const Core::VaultFileEntry &entry : vault.fileIndex().entries())
            paths << entry.vaultPath;
        return paths;
    }

    Core::VaultFileEntry entry(const QString &vaultPath) const
    {
        const Core::SecureFileIndex index = vault.fileIndex();
        const Core::VaultFileEntry *found = index.findFile(vaultPath);
        return found ? *found : Core::VaultFileEntry();
    }
    qint64 placeOf(const QString &vaultPath) const { return entry(vaultPath).blocks.value(0).offset; }
};

} // namespace Tessarin::Tests
