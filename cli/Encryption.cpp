// stowline encrypt, stowline decrypt
#include "cli/Commands.h"
#include "cli/Output.h"
#include "cli/ServiceFailure.h"
#include "stowline/service/WebServiceBroker.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <iterator>

namespace stowline::cli {

namespace {

using Operation = std::optional<Value> (*)(std::string_view);

ExitStatus run(const std::string& webMethod, Operation operation)
{
    if (const auto failure = settingsFailure(webMethod))
        return *failure;
    std::string text(std::istreambuf_iterator<char>(std::cin), {});
    if (text.ends_with('\n'))
        text.pop_back();
    const auto result = operation(text);
    if (!result)
        return callFailure(std::nullopt);
    return output().finishWithText("text", result->text());
}

} // namespace

void declareEncryption(CLI::App& app, Chosen& chosen)
{
    app.add_subcommand("encrypt", "Have the service encrypt the text on standard input")
        ->callback([&chosen] {
            chosen = [] { return run("EncryptString", WebServiceBroker::encryptString); };
        });
    app.add_subcommand("decrypt", "Have the service decrypt the text on standard input")
        ->callback([&chosen] {
            chosen = [] { return run("DecryptString", WebServiceBroker::decryptString); };
        });
}

} // namespace stowline::cli
