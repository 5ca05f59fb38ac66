/*
 * What tests of every kind share, without GoogleTest (the fuzz targets use it too): a
 * private temporary directory, a development setting for the length of a scope, and
 * exactly sized buffers between guard bytes.
 */
#ifndef KERV_TEST_SUPPORT_H
#define KERV_TEST_SUPPORT_H

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace kerv_test {

/* A fresh directory under /tmp (short: a Unix socket path is limited), removed with
   everything in it at the end of its scope. */
struct TempDir {
    TempDir() {
        char name[] = "/tmp/kerv-test-XXXXXX";
        if (mkdtemp(name) != nullptr)
            path = name;
    }
    ~TempDir() {
        std::error_code ignored;
        if (!path.empty())
            std::filesystem::remove_all(path, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    std::string file(const std::string &name) const { return path + "/" + name; }
    std::string path;
};

/* A setting of this process's environment (and so of the programs it starts) while it
   lives; the earlier value, or its absence, comes back at the end. */
struct ScopedSetting {
    ScopedSetting(const char *setting, const char *value) : name(setting) {
        const char *current = getenv(setting);
        was_set = current != nullptr;
        earlier = was_set ? current : "";
        setenv(setting, value, 1);
    }
    ~ScopedSetting() {
        if (was_set)
            setenv(name.c_str(), earlier.c_str(), 1);
        else
            unsetenv(name.c_str());
    }
    ScopedSetting(const ScopedSetting &) = delete;
    ScopedSetting &operator=(const ScopedSetting &) = delete;
    std::string name;
    bool was_set;
    std::string earlier;
};

/* A buffer of exactly size bytes, none of them zero at first, between two runs of guard
   bytes that a correct writer leaves untouched. */
class GuardedBuffer {
  public:
    explicit GuardedBuffer(size_t size) : bytes_(size + 2 * kGuard, kGuardByte) {
        memset(data(), kFill, size);
    }
    unsigned char *data() { return bytes_.data() + kGuard; }
    const unsigned char *data() const { return bytes_.data() + kGuard; }
    char *chars() { return reinterpret_cast<char *>(data()); }
    size_t size() const { return bytes_.size() - 2 * kGuard; }
    bool guards_intact() const {
        for (size_t i = 0; i < kGuard; ++i)
            if (bytes_[i] != kGuardByte || bytes_[bytes_.size() - 1 - i] != kGuardByte)
                return false;
        return true;
    }
    bool terminated() const { return size() > 0 && memchr(data(), 0, size()) != nullptr; }
    /* The stored text, or "<unterminated>" when no terminator lies within size. */
    std::string text() const {
        return terminated() ? reinterpret_cast<const char *>(data()) : "<unterminated>";
    }

  private:
    static constexpr size_t kGuard = 16;
    static constexpr unsigned char kGuardByte = 0xA5;
    static constexpr unsigned char kFill = 0x5A;
    std::vector<unsigned char> bytes_;
};

} // namespace kerv_test

#endif /* KERV_TEST_SUPPORT_H */
