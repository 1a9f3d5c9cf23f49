// Searches the process's own memory for the keys of a vault: there while it is unlocked, gone afterwards.
#include "core/VaultKeys.h"
#include "support/VaultFixture.h"

#include <sodium.h>

using namespace Tessarin::Core;
using namespace Tessarin::Tests;

/// A key that the search itself does not find, in the same memory: every bit turned round.
static QByteArray masked(QByteArray bytes)
{
    std::ranges::transform(bytes, bytes.begin(), [](char byte) { return static_cast<char>(~byte); });
    return bytes;
}

/// Whether any 16 bytes of the keys, at an offset of 8, lie anywhere in writable memory.
static bool areInMemory(const QList<QByteArray> &keys)
{
    QFile memory(u"/proc/self/mem"_s);
    static_cast<void>(memory.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    bool isFound = false;
    for (const QByteArray &line : readFile(u"/proc/self/maps"_s).split('\n')) {
        const QByteArrayList range = line.left(line.indexOf(' ')).split('-');
        const qint64 start = range.first().toLongLong(nullptr, 16);
        const qint64 size = range.last().toLongLong(nullptr, 16) - start;
        if (!line.contains(" rw") || size > (1LL << 34))
            continue;
        std::string bytes(static_cast<size_t>(size), '\0');
        memory.seek(start);
        memory.read(bytes.data(), size);
        for (const QByteArray &key : keys) {
            for (qsizetype at = 0; at + 16 <= key.size(); at += 8) {
                QByteArray run = masked(key.mid(at, 16));
                isFound |= bytes.find(run.constData(), 0, 16) != std::string::npos;
                wipe(run);
            }
        }
        sodium_memzero(bytes.data(), bytes.size());
    }
    return isFound;
}

class SecretsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keysAndPasswordsAreInMemoryOnlyWhileTheyAreNeeded()
    {
        VaultFixture f;
        const ContainerCryptoMetadata meta = f.document().crypto;
        const QList<QByteArray> keys{
            masked(CryptoManager().deriveKey(f.password, {meta.kdf, meta.salt, meta.kdfIterations, 64})),
            masked(decryptMasterKey(f.document(), f.password).view())};
        wipeUnusedStack();
        QVERIFY(areInMemory({keys.at(1)}));
        QVERIFY(!areInMemory({keys.at(0)}));
        f.play(u"put a=conteúdo; lock"_s);
        QVERIFY(!areInMemory(keys));
        QList<QByteArray> forms{masked(noise(60, 1).toHex()), {}};
        for (const char byte : forms.first()) // The same in UTF-16.
            forms[1].append(byte).append('\xff');
        QByteArray password = masked(forms.first());
        QVERIFY(!f.vault.unlockVault(f.container, "uma senha errada"));
        QVERIFY(f.vault.changePassword(f.container, f.password, password));
        QVERIFY(areInMemory(forms));
        wipe(password);
        QVERIFY(!areInMemory(keys + forms));
    }
};

QTEST_GUILESS_MAIN(SecretsTest)
#include "tst_secrets.moc"
