// Stands in for libsodium's password hash in the executables it is linked to: as deterministic, and dependent
// on every argument, but without the second and the 256 MiB that each password costs in the program.
#include <array>

#include <sodium.h>

int crypto_pwhash(unsigned char *const out, unsigned long long outlen, const char *const passwd,
                  unsigned long long passwdlen, const unsigned char *const salt, unsigned long long opslimit,
                  size_t memlimit, int alg)
{
    const std::array<unsigned long long, 3> costs{opslimit, memlimit, static_cast<unsigned long long>(alg)};
    crypto_generichash_state state;
    const int result = crypto_generichash_init(&state, salt, crypto_pwhash_SALTBYTES, outlen);
    crypto_generichash_update(&state, reinterpret_cast<const unsigned char *>(costs.data()), sizeof costs);
    crypto_generichash_update(&state, reinterpret_cast<const unsigned char *>(passwd), passwdlen);
    crypto_generichash_final(&state, out, outlen);
    sodium_memzero(&state, sizeof state);
    return result;
}
