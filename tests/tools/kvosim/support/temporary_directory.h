// A temporary directory, removed with its contents by the destructor.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace kvosim_test {

class TemporaryDirectory {
public:
    TemporaryDirectory()
    {
        std::string name = (std::filesystem::temp_directory_path() / "kvosim-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot create " + name);
        }
        path_ = name;
    }
    TemporaryDirectory(const TemporaryDirectory &) = delete;
    TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;
    ~TemporaryDirectory() { std::filesystem::remove_all(path_); }

    [[nodiscard]] const std::filesystem::path &path() const { return path_; }
    [[nodiscard]] std::filesystem::path operator/(const char *name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

inline std::string contentsOf(const std::filesystem::path &file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        return "(no " + file.string() + ")";
    }
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace kvosim_test
