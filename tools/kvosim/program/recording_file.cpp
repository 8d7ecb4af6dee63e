#include "kvosim/program/recording_file.h"

#include "common/refused.h"

#include <system_error>

namespace kvosim {

tools::recording::Recording loadRecording(const std::string &path)
{
    try {
        return tools::recording::Recording::load(path);
    } catch (const tools::recording::RecordingError &error) {
        throw tools::Refused(error.what());
    } catch (const std::system_error &error) {
        throw tools::Refused(path + ": " + error.code().message());
    }
}

}  // namespace kvosim
