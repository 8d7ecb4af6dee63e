// Measures how long kvosim takes to load a large plant: the processor time from its start until it accepts requests.
#include "subjects.h"
#include "support/expect.h"
#include "support/report.h"
#include "support/temporary_file.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace bench {

namespace {

constexpr double kGoal = 1.0;  // seconds

/// A plant file with 100000 stations, the most that kvosim generates.
class PlantFile {
public:
    PlantFile()
    {
        expect(std::system((KVOSIM_PROGRAM " generate 100000 >" + path()).c_str()) == 0, "kvosim cannot generate the plant");
    }

    [[nodiscard]] const std::string &path() const { return file_.path(); }

private:
    TemporaryFile file_;
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
