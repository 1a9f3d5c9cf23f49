// The catalogue of one vault: its files with the blocks that hold them, and its directories. A plain value;
// it holds no key and checks no parents. Its JSON form is what the container keeps encrypted.
#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>

namespace Tessarin::Core {

/// Where one encrypted block of a file lies.
struct VaultFileBlock
{
    qint64 offset = 0;        ///< Bytes from the start of the container file.
    qint64 plainSize = 0;     ///< Bytes of plaintext.
    qint64 encryptedSize = 0; ///< Bytes stored: the plaintext and its tag.
    QByteArray nonce;         ///< 24 bytes, of this block alone.
};

struct VaultFileEntry
{
    QString id;                ///< Opaque; a UUID in files this program writes.
    QString vaultPath;         ///< The key of the entry.
    qint64 sizeBytes = 0;      ///< Plaintext size of the whole file.
    QDateTime lastModifiedUtc; ///< May be invalid when unknown.
    QByteArray sha256;         ///< 32 raw bytes, of the plaintext.
    QList<VaultFileBlock> blocks;
};

struct VaultDirectoryEntry
{
    QString path; ///< The key of the entry.
    QDateTime createdUtc;
    QDateTime modifiedUtc;
};

class SecureFileIndex
{
public:
    /// In the order in which they were added. Called on a temporary index these return copies, so
    /// that a range-for over them stays valid.
    [[nodiscard]] const QList<VaultFileEntry> &entries() const &;
    [[nodiscard]] QList<VaultFileEntry> entries() &&;
    [[nodiscard]] const QList<VaultDirectoryEntry> &directories() const &;
    [[nodiscard]] QList<VaultDirectoryEntry> directories() &&;

    /// Exact, case-sensitive look-ups of the whole path.
    [[nodiscard]] bool contains(const QString &vaultPath) const;
    [[nodiscard]] bool containsDirectory(const QString &path) const;

    /// The first entry whose path is equal without regard to letter case; null when there is none. Valid
    /// until the index changes.
    [[nodiscard]] const VaultFileEntry *findFile(const QString &vaultPath) const;
    [[nodiscard]] const VaultDirectoryEntry *findDirectory(const QString &path) const;

    /// Replaces the entry of exactly this path where it stands, or appends. False when the path is empty.
    bool addOrReplace(const VaultFileEntry &entry);
    bool addDirectory(const VaultDirectoryEntry &entry);

    /// Gives the file of exactly this path another one; it keeps its place. False when there is no such file,
    /// or one of exactly the new path.
    bool setVaultPath(const QString &vaultPath, const QString &newVaultPath);

    /// Erases the entry of exactly this path; false when there is none. A directory's files stay.
    bool remove(const QString &vaultPath);
    /// Erases every file whose path is equal without regard to letter case; false when there is none.
    bool removeInAnyCase(const QString &vaultPath);
    bool removeDirectory(const QString &path);

    void clear();

    /// Compact JSON with the keys in the order of the format.
    [[nodiscard]] QByteArray toJson() const;

    /// Adds what the JSON holds to this index (give it an empty one). False, and nothing changed, when the
    /// bytes are no JSON object; members that are missing or malformed become empty, zero or invalid.
    [[nodiscard]] bool fromJson(const QByteArray &json);

private:
    /// Finds an entry's position by its path, exactly and by its case-folded key.
    struct PathLookup
    {
        QHash<QString, qsizetype> byPath;
        QHash<QString, qsizetype> firstByKey;

        void add(const QString &path, qsizetype position);
        /// Forgets the entry and closes the gap. False when paths that differ only in case make it more than
        /// that: then the look-up has to be built anew.
        [[nodiscard]] bool remove(const QString &path);
        /// The same for an entry that takes another path where it stands.
        [[nodiscard]] bool rename(const QString &from, const QString &to);
    };

    void rebuildFileLookup();
    void rebuildDirectoryLookup();

    QList<VaultFileEntry> fileEntries;
    QList<VaultDirectoryEntry> directoryEntries;
    PathLookup fileLookup;
    PathLookup directoryLookup;
};

/// True when a file, or a directory, of this path exists, without regard to letter case.
[[nodiscard]] bool indexContainsFilePath(const SecureFileIndex &index, const QString &path);
[[nodiscard]] bool indexContainsDirectoryPath(const SecureFileIndex &index, const QString &path);

/// Of all files. It means nothing where a forged index names sizes that overflow it.
[[nodiscard]] qint64 plaintextBytes(const SecureFileIndex &index);

} // namespace Tessarin::Core
