// An account on a development service, for tests of the service layer in this process.
#pragma once

#include "stowline/platform/desktop/Bundle.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace stowline::test {

/// This process has the service's settings from then on, and the account of ann ("secret words").
struct OpenedAccount {
    explicit OpenedAccount(const std::vector<std::string>& serverArguments = {})
        : server(serverArguments)
    {
        platform::Bundle::useFolder(server.bundle());
        platform::Bundle::useExecutable(builtProgram("stowline"));
        EXPECT_TRUE(WebServiceBroker::creatAccountWithFirstname("Ann", "ann", "secret words",
                                                                "a@b.c", nullptr));
        serverPath =
            WebServiceBroker::getUploadServerPathForUsername("ann", host, "guid").value_or("");
        EXPECT_FALSE(serverPath.empty());
    }

    const DevServerProcess server;
    const std::string host = server.address().substr(std::string("http://").size());
    std::string serverPath; ///< below which it uploads
};

} // namespace stowline::test
