/*
 * The fuzz targets without libFuzzer: each file of the corpus folders given on the
 * command line is run once through the target, so the seed corpora are replayed as
 * ordinary tests (and under the sanitizers of the ASan build). A broken invariant aborts.
 */
#include <dirent.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

namespace {

int replay_folder(const std::string &folder) {
    DIR *corpus = opendir(folder.c_str());
    if (corpus == nullptr)
        return -1;
    int replayed = 0;
    while (const dirent *entry = readdir(corpus)) {
        if (entry->d_name[0] == '.')
            continue;
        std::ifstream file(folder + "/" + entry->d_name, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(file)),
                                std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
        ++replayed;
    }
    closedir(corpus);
    return replayed;
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2 || (LLVMFuzzerInitialize != nullptr && LLVMFuzzerInitialize(&argc, &argv) != 0))
        return 2;
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const int count = replay_folder(argv[i]);
        if (count < 0) {
            fprintf(stderr, "no corpus folder %s\n", argv[i]);
            return 2;
        }
        replayed += count;
    }
    fprintf(stderr, "replayed %d inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}
