// The environment of the scenarios: the replies of a service, and a temporary folder.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

namespace reliability {

inline constexpr uint32_t kStation = 0x0500000A;
inline const std::string kDescription = "0500000A 00000400 00000300 00000020 00000003 st1 00000000 00000000 00000001 00000002 "
                                        "00000003 00000004 89ABCDEF ";

/// The replies of a service without faults.
inline std::string answerTo(const std::string &request)
{
    static const std::pair<const char *, const char *> kAnswers[] = {
        {"getBacklightBrightnessV2", "backlight-brightness-v2=70"},
        {"getCountElemDL", "1"},
        {"getDLV2", "00000001 0500000A 00000400 00000300 00000020 00000003 st1 "},
        {"getVersion", "V1.2.3.4"},
        {"getExDescByIP", kDescription.c_str()},
        {"getKVOt2m2n", "1:2,3"},
        {"getRV4Mode", "rv4mode=1"},
        {"is", "yes"},
    };
    for (const auto &[beginning, answer] : kAnswers) {
        if (request.starts_with(beginning)) {
            return answer;
        }
    }
    return "ok";
}

/// A temporary folder of a scenario.
class Folder {
public:
    Folder()
    {
        char name[] = "/tmp/kvo_reliability_XXXXXX";
        path_ = std::string(mkdtemp(name)) + "/";
    }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    ~Folder() { std::filesystem::remove_all(path_); }

    void write(const std::string &name, const std::string &text) const
    {
        std::filesystem::create_directories(std::filesystem::path(path_ + name).parent_path());
        std::ofstream(path_ + name) << text;
    }
    [[nodiscard]] const std::string &path() const { return path_; }

private:
    std::string path_;
};

}  // namespace reliability
