// The primitives against published vectors and against another implementation of Argon2.
#include "core/AuthManager.h"
#include "core/CryptoManager.h"

#include <QCryptographicHash>
#include <QFile>
#include <QTest>

#include <numeric>

using namespace Tessarin::Core;
using namespace Qt::Literals::StringLiterals;

namespace {

QByteArray counting(char first, int count)
{
    QByteArray bytes(count, first);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

} // namespace

class CryptoTest : public QObject
{
    Q_OBJECT

private:
    const CryptoManager crypto{};
    // draft-irtf-cfrg-xchacha, A.3.1
    const QByteArray key = counting('\x80', 32);
    const QByteArray nonce = counting('\x40', 24);
    const QByteArray associatedData = QByteArray::fromHex("50515253c0c1c2c3c4c5c6c7");
    const QByteArray plaintext =
        "Ladies and Gentlemen of the class of '99: If I could offer you only one tip for the "
        "future, sunscreen would be it.";
    const QByteArray ciphertext = QByteArray::fromHex("bd6d179d3e83d43b9576579493c0e939572a1700252bfaccbed290"
                                                      "2c21396cbb731c7f1b0b4aa6440bf3a82f4eda7e39ae64c670"
                                                      "8c54c216cb96b72e1213b4522f8c9ba40db5d945b11b69b982c1bb"
                                                      "9e3f3fac2bc369488f76b2383565d3fff921f9664c97637da9"
                                                      "768812f615c68b13b52ec0875924c1c7987947deafd8780acf49");

private Q_SLOTS:
    void sealingFollowsTheDraftAndOpensAgain()
    {
        QCOMPARE(crypto.encrypt(plaintext, key, nonce, associatedData), ciphertext);
        QCOMPARE(crypto.decrypt(ciphertext, key, nonce, associatedData), plaintext);
        const QByteArray tag = crypto.encrypt({}, key, nonce, {});
        QCOMPARE(tag.size(), 16);
        QVERIFY(crypto.decryptInto(nullptr, tag, key, nonce, {}));
    }

    void everyFlippedBitIsNoticed()
    {
        for (int part = 0; part < 4; ++part) {
            QByteArrayList parts{ciphertext, key, nonce, associatedData};
            for (qsizetype bit = 0; bit < parts.at(part).size() * 8; ++bit) {
                QByteArrayList flipped = parts;
                flipped[part][bit / 8] = static_cast<char>(flipped[part][bit / 8] ^ (1 << bit % 8));
                QCOMPARE(crypto.decrypt(flipped[0], flipped[1], flipped[2], flipped[3]), QByteArray());
            }
        }
    }

    void whatCannotBeUsedIsRefused()
    {
        for (const QByteArray &badKey : {key.left(31), key + 'x', QByteArray()}) {
            QCOMPARE(crypto.encrypt(plaintext, badKey, nonce, {}), QByteArray());
            QCOMPARE(crypto.decrypt(ciphertext, badKey, nonce, associatedData), QByteArray());
        }
        for (const QByteArray &badNonce : {nonce.left(12), nonce.left(23), nonce + 'x'}) {
            QCOMPARE(crypto.encrypt(plaintext, key, badNonce, {}), QByteArray());
            QCOMPARE(crypto.decrypt(ciphertext, key, badNonce, associatedData), QByteArray());
        }
        QCOMPARE(crypto.decrypt(ciphertext.left(15), key, nonce, associatedData), QByteArray());
        QCOMPARE(crypto.generateSalt(0), QByteArray());
        QCOMPARE(crypto.generateSalt(1).size(), 1);
        QCOMPARE(crypto.generateNonce(24).size(), 24);
        QVERIFY(crypto.generateNonce(24) != crypto.generateNonce(24));
        const QString argon = u"Argon2id"_s;
        const QByteArray salt(16, 's');
        for (const KeyDerivationParams &bad :
             QList<KeyDerivationParams>{{argon, salt.left(15), 0, 64},
                                        {argon, salt, 0, 0},
                                        {argon, salt, 0, 15},
                                        {{}, salt, 0, 64},
                                        {{}, {}, 1, 64},
                                        {{}, salt, 1, 0},
                                        {{}, salt, 1, std::numeric_limits<qint32>::max()}})
            QCOMPARE(crypto.deriveKey("password", bad), QByteArray());
        QCOMPARE(crypto.deriveKey({}, {{}, salt, 1, 64}), QByteArray());
        QCOMPARE(crypto.deriveKey("password", {{}, salt, 1, 1}).size(), 1);
    }

    void keyedHashFollowsTheRfcWithinItsFixedKeySize()
    {
        // RFC 4231, cases 1 and 2: HMAC pads a short key with zeros, so the padded one hashes alike.
        const QByteArray first = QByteArray(20, '\x0b') + QByteArray(12, '\0');
        QCOMPARE(crypto.hmacSha256("Hi There", first).toHex(),
                 "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
        const QByteArray second = QByteArray("Jefe") + QByteArray(28, '\0');
        QCOMPARE(crypto.hmacSha256("what do ya want for nothing?", second).toHex(),
                 "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
        QCOMPARE(crypto.hmacSha256("Hi There", first + "ignored"), crypto.hmacSha256("Hi There", first));
        QVERIFY(crypto.hmacSha256("Hi There", first.left(31)).isEmpty());
    }

    void fallbackDerivationFollowsTheRfc()
    {
        // RFC 7914, section 11
        const QByteArray oneRound = crypto.deriveKey("passwd", {u"argon2id"_s, "salt", 1, 64});
        QCOMPARE(oneRound.toHex(), "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc"
                                   "49ca9cccf179b645991664b39d77ef317c71b845b1e30bd509112041d3a19783");
        QCOMPARE(crypto.deriveKey("passwd", {{}, "salt", 1, 20}), oneRound.left(20));
        QCOMPARE(crypto.deriveKey("Password", {u"PBKDF2"_s, "NaCl", 80000, 64}).toHex(),
                 "4ddcd8f60b98be21830cee5ef22701f9641a4418d04c0414aeff08876b34ab56"
                 "a1d425a1225833549adb841b51c9b3176a272bdebba1d078478f62b397f33c8d");
    }

    void argon2AgreesWithTheReferenceCommand()
    {
        const QByteArray salt = "0123456789abcdef";
        // Not by QProcess, whose way of starting programs an emulated processor may lack.
        FILE *reference =
            ::popen("printf 'correct horse' | argon2 " + salt + " -id -t 3 -k 262144 -p 1 -l 64 -r", "r");
        QFile output;
        QVERIFY(output.open(reference, QIODevice::ReadOnly));
        const QByteArray expected = QByteArray::fromHex(output.readAll().trimmed());
        QCOMPARE(::pclose(reference), 0);
        QCOMPARE(expected.size(), 64);

        const KeyDerivationParams params{u"Argon2id"_s, salt, 0, 64};
        const QByteArray derived = crypto.deriveKey("correct horse", params);
        QCOMPARE(derived, expected);

        // The library reads so much of a salt and no more.
        QCOMPARE(crypto.deriveKey("correct horse", {u"Argon2id"_s, salt + "more", 0, 64}), expected);
    }

    void onlyThePasswordOfTheHashIsLetIn()
    {
        const KeyDerivationParams params{{}, "0123456789abcdef", 1, 64};
        const AuthManager auth(crypto);
        const QByteArray hash =
            QCryptographicHash::hash(crypto.deriveKey("correct horse", params), QCryptographicHash::Sha256);
        QVERIFY(auth.authenticate("correct horse", hash, params));
        QVERIFY(!auth.authenticate("wrong horse", hash, params));
        QVERIFY(!auth.authenticate({}, hash, params));
        QVERIFY(!auth.authenticate("correct horse", hash, {{}, "another salt", 1, 64}));
        for (const QByteArray &other :
             {QByteArray(), QByteArray(32, 'x'), hash.left(31), hash + 'x', hash.toHex()})
            QVERIFY(!auth.authenticate("correct horse", other, params));
    }

    void comparisonLooksAtLengthAndEveryByte()
    {
        QVERIFY(crypto.constantTimeEquals({}, {}));
        QVERIFY(crypto.constantTimeEquals("abc", "abc"));
        for (const char *other : {"abcd", "abC", "Abc", "ab", ""})
            QVERIFY(!crypto.constantTimeEquals("abc", other));
    }
};

QTEST_GUILESS_MAIN(CryptoTest)
#include "tst_crypto.moc"
