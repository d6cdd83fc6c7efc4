#include "stowline/logging/DDFileLogger.h"

#include "stowline/logging/LogFileWriter.h"
#include "stowline/logging/LoggerGuard.h"
#include "stowline/platform/time/LocalClock.h"

#include <array>
#include <vector>

namespace stowline {

std::optional<LogText> DDLogFileFormatterDefault::formatLogMessage(const DDLogMessage& message)
{
    std::string line = platform::localClockText(message.timestamp, '/');
    line.reserve(line.size() + message.logMsg.size() + 3);
    line.append("  ").append(message.logMsg);
    return LogText(std::move(line));
}

DDFileLogger::DDFileLogger(std::shared_ptr<DDLogFileManager> logFileManager,
                           FileLoggerClocks clocks)
    : DDAbstractLogger("com.Stowline.logging.fileLogger"),
      writer_(std::make_shared<LogFileWriter>(std::move(logFileManager), std::move(clocks)))
{
    setLogFormatter(std::make_shared<DDLogFileFormatterDefault>());
}

DDFileLogger::~DDFileLogger()
{
    writer_->close();
}

void DDFileLogger::logMessage(const DDLogMessage& message)
{
    std::string line;
    if (appendLine(line, message))
        writer_->write(line, std::array{line.size()});
}

void DDFileLogger::logMessages(std::span<const std::shared_ptr<const DDLogMessage>> messages)
{
    std::string lines;
    std::vector<std::size_t> ends;
    ends.reserve(messages.size());
    for (const auto& message : messages) {
        lines.resize(ends.empty() ? 0 : ends.back()); // nothing of a line that failed
        guarded(loggerName(), [&] {
            if (appendLine(lines, *message))
                ends.push_back(lines.size());
        });
    }
    lines.resize(ends.empty() ? 0 : ends.back());
    writer_->write(lines, ends);
}

bool DDFileLogger::appendLine(std::string& lines, const DDLogMessage& message)
{
    const auto text = formattedText(message);
    if (!text)
        return false;
    lines.append(text->view());
    if (!text->view().ends_with('\n'))
        lines.push_back('\n');
    return true;
}

void DDFileLogger::flush()
{
    writer_->synchronize();
}

const std::shared_ptr<DDLogFileManager>& DDFileLogger::logFileManager() const
{
    return writer_->manager();
}

std::uint64_t DDFileLogger::maximumFileSize()
{
    std::uint64_t bytes = 0;
    readInTurn([&] { bytes = writer_->maximumFileSize(); });
    return bytes;
}

void DDFileLogger::setMaximumFileSize(std::uint64_t bytes)
{
    changeInTurn([writer = writer_, bytes] { writer->setMaximumFileSize(bytes); });
}

double DDFileLogger::rollingFrequency()
{
    double seconds = 0;
    readInTurn([&] { seconds = writer_->rollingFrequency(); });
    return seconds;
}

void DDFileLogger::setRollingFrequency(double seconds)
{
    changeInTurn([writer = writer_, seconds] { writer->setRollingFrequency(seconds); });
}

void DDFileLogger::rollLogFile()
{
    changeInTurn([writer = writer_] { writer->roll(); });
}

std::optional<DDLogFileInfo> DDFileLogger::currentLogFileInfo()
{
    std::optional<DDLogFileInfo> info;
    readInTurn([&] { info = writer_->currentFile(); });
    return info;
}

} // namespace stowline
