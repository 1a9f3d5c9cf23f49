// The primitives against vectors: published ones, and one of another implementation of Argon2.
#include "core/AuthManager.h"
#include "core/CryptoManager.h"

#include <QtTest>

using namespace Tessarin::Core;
using namespace Qt::Literals::StringLiterals;

class CryptoTest : public QObject
{
    Q_OBJECT

private:
    const CryptoManager crypto{};
    // draft-irtf-cfrg-xchacha, A.3.1
    const QByteArray key =
        QByteArray::fromHex("808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9f");
    const QByteArray nonce = QByteArray::fromHex("404142434445464748494a4b4c4d4e4f5051525354555657");
    const QByteArray associatedData = QByteArray::fromHex("50515253c0c1c2c3c4c5c6c7");
    const QByteArray plain = "Ladies and Gentlemen of the class of '99: If I could offer you only one tip "
                             "for the future, sunscreen would be it.";
    const QByteArray ciphertext = QByteArray::fromHex(
        "bd6d179d3e83d43b9576579493c0e939572a1700252bfaccbed2902c21396cbb731c7f1b0b4aa6440bf3a82f4eda7e39ae64"
        "c6708c54c216cb96b72e1213b4522f8c9ba40db5d945b11b69b982c1bb9e3f3fac2bc369488f76b2383565d3fff921f9664c"
        "97637da9768812f615c68b13b52ec0875924c1c7987947deafd8780acf49");

private Q_SLOTS:
    void sealingFollowsTheDraftAndOnlyThatOpens()
    {
        QCOMPARE(crypto.encrypt(plain, key, nonce, associatedData), ciphertext);
        QCOMPARE(crypto.decrypt(ciphertext, key, nonce, associatedData), plain);
        QCOMPARE(crypto.decrypt(ciphertext, key, nonce, {}), QByteArray());
        const QByteArray tag = crypto.encrypt({}, key, nonce, {});
        QCOMPARE(tag.size(), 16);
        QVERIFY(crypto.decryptInto(nullptr, tag, key, nonce, {}));
        for (qsizetype bit = 0; bit < ciphertext.size() * 8; ++bit) {
            QByteArray flipped = ciphertext;
            flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
            QCOMPARE(crypto.decrypt(flipped, key, nonce, associatedData), QByteArray());
        }
    }

    void whatCannotBeUsedIsRefused()
    {
        for (const auto &[badKey, badNonce] : {std::pair{key.left(31), nonce},
                                               {key + 'x', nonce},
                                               {key, nonce.left(23)},
                                               {key, nonce + 'x'}}) {
            QCOMPARE(crypto.encrypt(plain, badKey, badNonce, {}), QByteArray());
            QCOMPARE(crypto.decrypt(ciphertext, badKey, badNonce, associatedData), QByteArray());
        }
        QCOMPARE(crypto.decrypt(ciphertext.left(15), key, nonce, associatedData), QByteArray());
        QVERIFY(crypto.hmacSha256("Hi There", key.left(31)).isEmpty());
        QCOMPARE(crypto.generateSalt(0), QByteArray());
        QCOMPARE(crypto.generateSalt(1).size(), 1);
        const QByteArray salt(16, 's');
        constexpr qint32 most = 1024 * 1024;
        const QList<KeyDerivationParams> bad{{u"Argon2id"_s, salt.left(15), 0, 64},
                                             {u"Argon2id"_s, salt, 0, 15},
                                             {{}, salt, 0, 64},
                                             {{}, {}, 1, 64},
                                             {{}, salt, 1, 0},
                                             {{}, salt, 1, most + 1}};
        for (const KeyDerivationParams &params : bad)
            QCOMPARE(crypto.deriveKey("password", params), QByteArray());
        QCOMPARE(crypto.deriveKey({}, {{}, salt, 1, 64}), QByteArray());
        for (const qint32 length : {1, most})
            QCOMPARE(crypto.deriveKey("password", {{}, salt, 1, length}).size(), length);
    }

    void hashesFollowTheirVectors()
    {
        // RFC 4231, case 1: HMAC pads a short key with zeros, so the padded one hashes alike.
        const QByteArray padded = QByteArray(20, '\x0b') + QByteArray(12, '\0');
        for (const QByteArray &longEnough : {padded, padded + "ignored"})
            QCOMPARE(crypto.hmacSha256("Hi There", longEnough).toHex(),
                     "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
        // RFC 7914, section 11
        QCOMPARE(crypto.deriveKey("passwd", {u"argon2id"_s, "salt", 1, 20}).toHex(),
                 "55ac046e56e3089fec1691c22544b605f9418521");
        QCOMPARE(crypto.deriveKey("Password", {u"PBKDF2"_s, "NaCl", 80000, 64}).toHex(),
                 "4ddcd8f60b98be21830cee5ef22701f9641a4418d04c0414aeff08876b34ab56"
                 "a1d425a1225833549adb841b51c9b3176a272bdebba1d078478f62b397f33c8d");
        // The answer of: argon2 0123456789abcdef -id -t 3 -k 262144 -p 1 -l 64 -r
        for (const QByteArray &salt : {"0123456789abcdef"_ba, "0123456789abcdefmore"_ba})
            QCOMPARE(crypto.deriveKey("correct horse", {u"Argon2id"_s, salt, 0, 64}).toHex(),
                     "942dd1337896acec15e7223a2432ce1254ed095545b731e24dfa823db8506201"
                     "9c7b1b2eae82c94c5c08f94884de12c651c1d14f6caecf9f41caae5b36564b7c");
    }

    void onlyThePasswordOfTheHashIsLetIn()
    {
        const KeyDerivationParams params{{}, "0123456789abcdef", 1, 64};
        const AuthManager auth(crypto);
        const auto sha256 = QCryptographicHash::Sha256;
        const QByteArray hash = QCryptographicHash::hash(crypto.deriveKey("correct horse", params), sha256);
        QVERIFY(auth.authenticate("correct horse", hash, params));
        QVERIFY(!auth.authenticate("wrong horse", hash, params));
        QVERIFY(!auth.authenticate({}, QCryptographicHash::hash({}, sha256), params));
        QVERIFY(!auth.authenticate("correct horse", hash, {{}, "another salt", 1, 64}));
        for (const char *other : {"", "ab", "abc", "abcd", "abC", "Abc"})
            QCOMPARE(crypto.constantTimeEquals("abc", other), QByteArray(other) == "abc");
    }
};

QTEST_GUILESS_MAIN(CryptoTest)
#include "tst_crypto.moc"
