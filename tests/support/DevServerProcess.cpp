#include "tests/support/DevServerProcess.h"

#include "stowline/platform/files/Files.h"
#include "tests/support/TestPaths.h"

#include <csignal>
#include <stdexcept>

namespace stowline::test {

namespace {

ProgramRun serverRun(const TemporaryFolder& folder, const std::filesystem::path& data,
                     const std::vector<std::string>& arguments)
{
    ProgramRun run{{builtProgram("stowline-devserver"), "--data", data.string(), "--bundle",
                    (folder.path() / "bundle").string(), "--port-file",
                    (folder.path() / "port").string()}};
    run.words.insert(run.words.end(), arguments.begin(), arguments.end());
    return run;
}

} // namespace

DevServerProcess::DevServerProcess(const std::vector<std::string>& arguments,
                                   std::optional<std::filesystem::path> data)
    : data_(data.value_or(folder_.path() / "data"))
{
    start(arguments);
}

void DevServerProcess::start(const std::vector<std::string>& arguments)
{
    process_.emplace(serverRun(folder_, data_, arguments));
    const auto line = process_->readLine();
    const std::string announcement = "listening ";
    if (!line || !line->starts_with(announcement))
        throw std::runtime_error("stowline-devserver did not start: " + process_->wait().errors);
    address_ = line->substr(announcement.size());
}

void DevServerProcess::killAndRestart()
{
    process_->signal(SIGKILL);
    (void)process_->wait();
    start({"--port", address_.substr(address_.rfind(':') + 1)});
}

std::string wireCapture(const std::string& name)
{
    const auto text = platform::readFile(test::sourceFile(std::string("tests/wire/").append(name)));
    if (!text)
        throw std::runtime_error("no capture " + name);
    return *text;
}

std::string wireBody(const std::string& name)
{
    const std::string capture = wireCapture(name);
    const auto end = capture.find("\n\n");
    std::string body = capture.substr(end + 2);
    if (body.ends_with('\n'))
        body.pop_back();
    return body;
}

} // namespace stowline::test
