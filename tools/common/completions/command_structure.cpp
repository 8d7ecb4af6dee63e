// Writes the commands and options that the parser knows.
#include "common/completions/command_structure.h"

#include <nlohmann/json.hpp>
#include <ostream>

namespace tools::completions {

namespace {

using Json = nlohmann::ordered_json;

Json describe(const CLI::Option &option)
{
    Json names = Json::array();
    for (const std::string &name : option.get_snames()) {
        names.push_back("-" + name);
    }
    for (const std::string &name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    if (option.get_positional()) {
        names.push_back(option.get_name());
    }
    return {{"names", std::move(names)},
            {"positional", option.get_positional()},
            {"value", option.get_items_expected_max() > 0},
            {"type", option.get_type_name()},
            {"required", option.get_required()},
            {"several", option.get_items_expected_max() > 1},
            {"meaning", option.get_description()}};
}

Json describe(const CLI::App &app)
{
    Json options = Json::array();
    for (const CLI::Option *option : app.get_options()) {
        options.push_back(describe(*option));
    }
    Json commands = Json::array();
    for (const CLI::App *command : app.get_subcommands(std::function<bool(const CLI::App *)>{})) {
        commands.push_back(describe(*command));
    }
    return {{"name", app.get_name()},     {"group", app.get_group()},      {"meaning", app.get_description()},
            {"footer", app.get_footer()}, {"options", std::move(options)}, {"commands", std::move(commands)}};
}

}  // namespace

bool writeStructure(const CLI::App &app, const std::vector<std::string> &arguments, std::ostream &out)
{
    if (arguments != std::vector<std::string>{"complete", "--structure"}) {
        return false;
    }
    out << describe(app).dump(1) << '\n';
    return true;
}

}  // namespace tools::completions
