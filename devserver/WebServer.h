// The HTTP side of the service.
#pragma once

#include "devserver/FaultPlan.h"
#include "devserver/ServiceMethod.h"
#include "devserver/Storage.h"
#include "devserver/Tickets.h"
#include "devserver/page/Page.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace stowline::devserver {

struct TlsFiles {
    std::filesystem::path certificate;
    std::filesystem::path key;
};

/// What the plain requests of an upload and a download work on.
struct PartContext {
    Storage& storage;
    Tickets& tickets;
    bool requiresTicket = false; ///< for parts going up as well
};

/// Listens on the loopback interface and answers with the services and the plain requests of an
/// upload and a download.
class WebServer {
public:
    /// Services, what the parts work on, and faults must outlive the server.
    WebServer(const std::vector<Service>& services, const PartContext& parts, FaultPlan& faults,
              const std::optional<TlsFiles>& tls);
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    /// Answers the requests for the page for people (Page.h). Before run().
    void servePage(std::function<PageAnswer(const PageRequest&)> answer);

    /// Hands out a settings file for hosts, in the place where they look for it. Before run().
    void serveSettings(std::string settings);

    /// Takes a port; 0 lets the system choose one.
    /// @return the port; absent when it is taken.
    [[nodiscard]] std::optional<int> bind(int port);

    /// "http://127.0.0.1:port". After bind().
    [[nodiscard]] std::string address() const;

    /// Serves until stop().
    void run();

    /// Ends run(), also calls that stall; waits for run() to have begun. Any other thread.
    void stop();

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};

} // namespace stowline::devserver
