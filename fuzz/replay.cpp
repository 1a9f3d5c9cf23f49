// A main for compilers that do not bring libFuzzer's: gives a fuzz target the files that are named on the
// command line, each once as it is and then with small changes, the same ones every time, as many as time
// allows.
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr int changedCopies = 10000;
constexpr std::clock_t processorTime = 4 * CLOCKS_PER_SEC; ///< Of all inputs together.

using Bytes = std::vector<char>;

void run(const Bytes &bytes)
{
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

/// A byte less, a byte more or another byte, which is often one that the format knows.
void change(Bytes &bytes, std::minstd_rand &random)
{
    const auto anyPlace = [&] { return static_cast<std::ptrdiff_t>(random() % bytes.size()); };
    if (bytes.empty())
        return;
    const auto at = bytes.begin() + anyPlace();
    const char byte = random() % 4 == 0 ? static_cast<char>(random()) : *(bytes.begin() + anyPlace());
    switch (random() % 3) {
    case 0:
        bytes.erase(at);
        break;
    case 1:
        bytes.insert(at, byte);
        break;
    default:
        *at = byte;
    }
}

} // namespace

int main(int argc, char *argv[])
{
    for (int i = 1; i < argc; ++i) {
        std::ifstream file(argv[i], std::ios::binary);
        if (!file) {
            std::fprintf(stderr, "cannot read %s\n", argv[i]);
            return 1;
        }
        std::fprintf(stderr, "%s\n", argv[i]);
        const Bytes bytes{std::istreambuf_iterator<char>(file), {}};
        run(bytes);
        std::minstd_rand random;
        for (int copy = 0; copy < changedCopies && std::clock() < processorTime / (argc - 1) * i; ++copy) {
            Bytes changed = bytes;
            for (int changes = copy % 3; changes >= 0; --changes)
                change(changed, random);
            run(changed);
        }
    }
    return 0;
}
