// Fuzzes the lookup of sysfs-style files in a small test tree: the line found is compared with a reference implementation.
#include "support.h"

#include <kvo_hws/agent.h>

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <unistd.h>

namespace {

// ---- The tree ----

const std::string kLongName(255, 'n');  // the longest file name

/// Creates the tree and makes it the working directory. The destructor removes it.
class Tree {
public:
    Tree() : root_(std::filesystem::temp_directory_path() / ("sysfs." + std::to_string(getpid())))
    {
        put("class/input/input0/name", "Touch\nsecond line\n");
        put("class/input/input0/*/name", "literal\n");
        put("class/inputinput0/name", "a star was taken out of a name\n");
        put("class/*/name", "star\n");
        put("class/long/" + kLongName + "/name", std::string(300, 'x') + "\n");
        put("*/name", "first\n");
        put("bare", "no line end");
        put("empty", "");
        put("zero", std::string("a\0b\n", 4));
        std::filesystem::create_directory(root_ / "class" / "none");
        std::filesystem::current_path(root_);
    }
    Tree(const Tree &) = delete;
    Tree &operator=(const Tree &) = delete;
    ~Tree()
    {
        std::error_code ignored;
        std::filesystem::current_path("/", ignored);
        std::filesystem::remove_all(root_, ignored);
    }

    [[nodiscard]] std::string root() const { return root_.string(); }

private:
    void put(const std::string &file, const std::string &content) const
    {
        std::filesystem::create_directories((root_ / file).parent_path());
        std::ofstream(root_ / file) << content;
    }

    std::filesystem::path root_;
};

// ---- The reference implementation ----

std::string firstEntryOf(const std::string &folder)
{
    std::string name;
    if (DIR *const directory = opendir(folder.c_str())) {
        while (const dirent *const entry = readdir(directory)) {
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
                name = entry->d_name;
                break;
            }
        }
        closedir(directory);
    }
    return name;
}

/// Replaces the first "*" if it is a whole component and not the first character of the path.
std::string referenceSubstitution(const std::string &path)
{
    std::size_t star = 0;
    while (star < path.size() && path[star] != '*') {
        ++star;
    }
    if (star == path.size() || star == 0 || path[star - 1] != '/' || (star + 1 < path.size() && path[star + 1] != '/')) {
        return path;
    }
    const std::string entry = firstEntryOf(path.substr(0, star));
    return entry.empty() ? path : path.substr(0, star) + entry + path.substr(star + 1);
}

/// At most 127 characters of the first line. Nothing if the file cannot be opened.
std::optional<std::string> referenceFirstLine(const std::string &path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return std::nullopt;
    }
    std::string line;
    for (char byte = 0; line.size() < 127 && read(file, &byte, 1) == 1 && byte != '\n';) {
        line += byte;
    }
    close(file);
    return line.c_str();  // up to the first zero
}

// ---- The comparison ----

using fuzz::ExactText;

void compareFile(const std::string &dir, const std::string &sub, const std::string &file)
{
    const auto wanted = referenceFirstLine(referenceSubstitution(dir + "/" + sub + "/" + file));
    char *const got = sysfsfile(ExactText(dir).get(), ExactText(sub).get(), ExactText(file).get());
    const std::optional<std::string> line = got != nullptr ? std::optional<std::string>(got) : std::nullopt;
    std::free(got);
    if (line != wanted) {
        fuzz::fault("sysfsfile(\"%s\", \"%s\", \"%s\"): \"%s\", in the reference \"%s\"", dir.c_str(), sub.c_str(),
                    file.c_str(), line.value_or("(null)").c_str(), wanted.value_or("(null)").c_str());
    }
}

/// Uses a block of exactly the size that the manual requires.
void compareSubstitution(const std::string &path)
{
    constexpr std::size_t kFurther = 260;
    const std::string folder = path.substr(0, path.size() - 1);
    const std::string entry = firstEntryOf(folder);
    const ExactText block(path + std::string(kFurther - 1, '\0'));
    sysfssubst(block.get());
    if (block.get() != folder + (entry.empty() ? "*" : entry)) {
        fuzz::fault("sysfssubst(\"%s\"): \"%s\"", path.c_str(), block.get());
    }
}

/// Removes the next line from the input and returns it.
std::string nextText(std::string_view &input)
{
    const std::string_view text = input.substr(0, input.find('\n'));
    input.remove_prefix(std::min(input.size(), text.size() + 1));
    return std::string(text);
}

}  // namespace

/// The input has three lines: folder, component, file. Inputs that lead out of the tree are ignored.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    static const Tree tree;
    std::string_view input = fuzz::textOf(data, size);
    if (input.find("..") != std::string_view::npos || input.starts_with('/') || input.starts_with('\n')) {
        return 0;
    }
    const std::string dir = nextText(input);
    const std::string sub = nextText(input);
    const std::string file = nextText(input);
    compareFile(dir, sub, file);
    compareFile(tree.root() + "/" + dir, sub, file);
    if (dir.ends_with('*')) {
        compareSubstitution(dir);
    }
    return 0;
}
