// Measures how long kvosim takes to load a large plant: the processor time from its start until it accepts requests.
#include "subjects.h"
#include "support/expect.h"
#include "support/report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace bench {

namespace {

constexpr double kGoal = 1.0;  // seconds

/// A plant file with 100000 stations, the most that kvosim generates.
class PlantFile {
public:
    PlantFile()
    {
        const int file = mkstemp(path_.data());
        expect(file >= 0, "cannot create a plant file");
        close(file);
        expect(std::system((KVOSIM_PROGRAM " generate 100000 >" + path_).c_str()) == 0, "kvosim cannot generate the plant");
    }
    PlantFile(const PlantFile &) = delete;
    PlantFile &operator=(const PlantFile &) = delete;
    ~PlantFile() { unlink(path_.c_str()); }

    [[nodiscard]] const std::string &path() const { return path_; }

private:
    std::string path_ = "/tmp/kvo_bench-XXXXXX";
};

/// The simulator's processor time at the start of its command. kvosim starts the command when it is ready.
double secondsUntilReady(const PlantFile &plant)
{
    const std::string command = KVOSIM_PROGRAM " run --usb-lock-address none --plant " + plant.path() +
                                " -- sh -c 'cut -d \" \" -f 1 /proc/$PPID/schedstat'";
    std::FILE *output = popen(command.c_str(), "r");
    expect(output != nullptr, "cannot start kvosim");
    double nanoseconds = 0;
    const bool isRead = std::fscanf(output, "%lf", &nanoseconds) == 1;
    expect(pclose(output) == 0 && isRead, "kvosim did not serve the plant");
    return nanoseconds / 1e9;
}

}  // namespace

void measurePlant()
{
    const PlantFile plant;
    std::array<double, 5> seconds{};
    std::generate(seconds.begin(), seconds.end(), [&] { return secondsUntilReady(plant); });
    std::sort(seconds.begin(), seconds.end());
    const double median = seconds.at(seconds.size() / 2);
    std::printf("\n%-38s %s\n", "Loading a plant", "processor time");
    std::array<char, 16> figure{};
    std::snprintf(figure.data(), figure.size(), "%7.2f s", median);
    printFigure("kvosim is ready, 100 000 stations", figure.data(), "<= 1.00 s", median <= kGoal);
}

}  // namespace bench
