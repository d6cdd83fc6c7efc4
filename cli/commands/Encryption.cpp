// stowline encrypt, stowline decrypt
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "cli/shared/ServiceFailure.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"

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
    const FailureWatch watch;
    const auto result = operation(text);
    if (!result)
        return callFailure(watch.failure());
    return output().finishWithText("text", result->text());
}

} // namespace

void declareEncryption(const Command& app)
{
    app.addCommand("encrypt", "Have the service encrypt the text on standard input").runs([] {
        return run("EncryptString", WebServiceBroker::encryptString);
    });
    app.addCommand("decrypt", "Have the service decrypt the text on standard input").runs([] {
        return run("DecryptString", WebServiceBroker::decryptString);
    });
}

} // namespace stowline::cli
