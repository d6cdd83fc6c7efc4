// Calls whose helper is forked by a nursery, for the tests of that.
#pragma once

#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/Helpers.h"
#include "tests/support/SoapAnswers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>

namespace stowline::test {

/// A bundle with one method "M", and calls of it.
class Caller {
public:
    /// @param headers of the settings; without any no "User-Agent" is sent
    explicit Caller(const std::string& url, const Dictionary& headers = {})
        : bundle_(settingsWith("M", entry(url, headers)))
    {
        DDLog::addLogger(logger_);
        WebServiceBroker::useNursery(true);
    }
    ~Caller()
    {
        DDLog::removeLogger(logger_);
        DDLog::flushLog();
    }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    static bool works()
    {
        return WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}).has_value();
    }

    /// How many lines say that a helper was started alone.
    [[nodiscard]] std::size_t aloneLines() const
    {
        DDLog::flushLog();
        std::size_t count = 0;
        for (const auto& line : logger_->lines())
            count += saysAlone(line.text);
        return count;
    }

    /// Whether those lines name the broker and the operation that called.
    [[nodiscard]] bool aloneLinesNameTheOperation() const
    {
        DDLog::flushLog();
        return std::ranges::all_of(logger_->lines(), [](const CountingLogger::Line& line) {
            return !saysAlone(line.text) ||
                   (line.file == "WebServiceBroker" &&
                    line.function.starts_with("invokeSOAPMethodWithName:"));
        });
    }

    const TestBundle& bundle() const { return bundle_; }

private:
    static Dictionary entry(const std::string& url, const Dictionary& headers)
    {
        Dictionary fields{
            {"URL", url}, {"namespace", "urn:t"}, {"soapParams", Array{named("p", "<<P>>")}}};
        if (!headers.empty())
            fields["httpHeaders"] = Value(headers);
        return fields;
    }

    static bool saysAlone(const std::string& text)
    {
        return text.starts_with("WebServiceCaller is started separately for each call: ");
    }

    const TestBundle bundle_;
    const std::shared_ptr<CountingLogger> logger_ = std::make_shared<CountingLogger>();
};

/// Waits until something is so; the test's own limit is the end of patience.
inline void until(const std::function<bool()>& isSo)
{
    while (!isSo())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

/// Signals one process, and never a group of them.
inline void signalOne(int process, int number)
{
    ASSERT_GT(process, 0) << "there is none";
    EXPECT_EQ(::kill(process, number), 0);
}

/// The one nursery of this process; 0 when there is none.
inline int nursery()
{
    const auto all = nurseriesOf(::getpid());
    EXPECT_LE(all.size(), 1U);
    return all.empty() ? 0 : all.front();
}

} // namespace stowline::test
