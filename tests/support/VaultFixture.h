// A vault in a temporary directory, and short ways to put bytes into it and get them out.
#pragma once

#include "core/ContainerManager.h"
#include "core/VaultManager.h"

#include <QCryptographicHash>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

namespace Tessarin::Tests {

inline void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(bytes), bytes.size());
}

inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Changes the bytes of a file from an offset on, keeping its length.
inline void overwrite(const QString &path, qint64 offset, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly) && file.seek(offset));
    QCOMPARE(file.write(bytes), bytes.size());
}

/// Bytes that no compressor or coincidence makes equal to others.
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
    const QByteArray password = "uma senha bem longa";
    QTemporaryDir folder;
    const QString container = folder.filePath(QStringLiteral("tessarin.trvx"));
    Core::VaultManager vault;

    bool create() { return vault.createVault(container, password); }
    bool unlock() { return vault.unlockVault(container, password); }
    bool createAndUnlock() { return create() && unlock(); }

    /// Stores bytes under a path of the vault.
    bool put(const QString &vaultPath, const QByteArray &bytes)
    {
        const QString source = folder.filePath(QStringLiteral("source"));
        writeFile(source, bytes);
        return vault.importFile(source, vaultPath);
    }

    /// The bytes under a path of the vault; null when they cannot be exported.
    QByteArray get(const QString &vaultPath) const
    {
        const QString target = folder.filePath(QStringLiteral("target"));
        if (!vault.exportFile(vaultPath, target))
            return {};
        const QByteArray bytes = readFile(target);
        return bytes.isNull() ? QByteArray("") : bytes;
    }

    Core::ContainerDocument document() const
    {
        Core::ContainerDocument read;
        if (!Core::ContainerManager().readDocument(container, &read))
            read.formatVersion = -1;
        return read;
    }

    QStringList filePaths() const
    {
        QStringList paths;
        for (const Core::VaultFileEntry &entry : vault.fileIndex().entries())
            paths << entry.vaultPath;
        return paths;
    }

    QStringList directoryPaths() const
    {
        QStringList paths;
        for (const Core::VaultDirectoryEntry &entry : vault.fileIndex().directories())
            paths << entry.path;
        return paths;
    }
};

} // namespace Tessarin::Tests
