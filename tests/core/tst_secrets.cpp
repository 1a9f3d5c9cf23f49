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

/// How many 16-byte runs of the keys lie in writable memory, at any offset of 8.
static int runsInMemory(const QList<QByteArray> &keys)
{
    QFile memory(u"/proc/self/mem"_s);
    static_cast<void>(memory.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    int found = 0;
    for (const QByteArray &line : readFile(u"/proc/self/maps"_s).split('\n')) {
        const QByteArrayList range = line.left(line.indexOf(' ')).split('-');
        const qint64 start = range.first().toLongLong(nullptr, 16);
        const qint64 size = range.last().toLongLong(nullptr, 16) - start;
        if (!line.contains(" rw") || size > (1LL << 34))
            continue;
        QByteArray bytes(size, '\0');
        memory.seek(start);
        memory.read(bytes.data(), size);
        for (const QByteArray &key : keys) {
            for (qsizetype at = 0; at + 16 <= key.size(); at += 8) {
                QByteArray run = masked(key.mid(at, 16));
                found += static_cast<int>(QByteArrayView(bytes).count(run));
                wipe(run);
            }
        }
        sodium_memzero(bytes.data(), static_cast<size_t>(size));
    }
    return found;
}

class SecretsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keysAndPasswordsAreInMemoryOnlyWhileTheyAreNeeded()
    {
        VaultFixture f;
        const ContainerCryptoMetadata metadata = f.document().crypto;
        const QList<QByteArray> keys{
            masked(CryptoManager().deriveKey(f.password,
                                             {metadata.kdf, metadata.salt, metadata.kdfIterations, 64})),
            masked(decryptMasterKey(f.document(), f.password).view())};
        wipeUnusedStack();
        QVERIFY(runsInMemory({keys.at(1)}) > 0);
        QCOMPARE(runsInMemory({keys.at(0)}), 0);
        f.play(u"put a=conteúdo; lock"_s);
        QCOMPARE(runsInMemory(keys), 0);
        QList<QByteArray> forms{masked(noise(60, 1).toHex()), {}};
        for (const char byte : forms.first()) // The same in UTF-16.
            forms[1].append(byte).append('\xff');
        QByteArray password = masked(forms.first());
        QVERIFY(!f.vault.unlockVault(f.container, "uma senha errada"));
        QVERIFY(f.vault.changePassword(f.container, f.password, password));
        QVERIFY(runsInMemory(forms) > 0);
        wipe(password);
        QCOMPARE(runsInMemory(keys + forms), 0);
    }
};

QTEST_GUILESS_MAIN(SecretsTest)
#include "tst_secrets.moc"
