// A service that behaves as an exchange of the catalogue describes.
#pragma once

#include "catalogue/request.h"
#include "support/scripted_service.h"

#include <optional>
#include <string>
#include <vector>

namespace support {

/// The requests that a service has received, without line feeds.
inline std::vector<std::string> commandsOf(const ScriptedService &service)
{
    std::vector<std::string> commands;
    for (const std::string &line : service.requests()) {
        commands.push_back(line.substr(0, line.size() - 1));
    }
    return commands;
}

class CatalogueService {
public:
    explicit CatalogueService(const catalogue::Exchange &exchange)
    {
        using Service = catalogue::Exchange::Service;
        if (exchange.service == Service::closes) {
            service_.emplace(std::vector<Script>{closesAfterRequest()});
        } else if (exchange.service == Service::answers) {
            std::vector<Script> scripts;
            for (const std::string &reply : exchange.replies) {
                scripts.push_back(replies(reply));
            }
            service_.emplace(scripts);
        }
    }

    [[nodiscard]] std::vector<std::string> commands() const
    {
        return service_ ? commandsOf(*service_) : std::vector<std::string>{};
    }

private:
    std::optional<ScriptedService> service_;
};

}  // namespace support
