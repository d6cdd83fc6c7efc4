#include "stowline/logging/CurrentLogFile.h"

namespace stowline {

std::optional<CurrentLogFile> CurrentLogFile::open(DDLogFileInfo info, double age, Moment now)
{
    auto file = platform::AppendFile::open(info.filePath());
    if (!file)
        return std::nullopt;
    CurrentLogFile current(std::move(info), std::move(*file), age, now);
    if (!current.look(now))
        return std::nullopt;
    return current;
}

double CurrentLogFile::age(Moment now) const
{
    const std::chrono::duration<double> open = now - openedAt_;
    return ageWhenOpened_ + open.count();
}

bool CurrentLogFile::isThere(Moment now)
{
    constexpr std::chrono::milliseconds goodFor{1};
    return now - lookedAt_ < goodFor || look(now);
}

bool CurrentLogFile::look(Moment now)
{
    const auto size = file_.linkedSize();
    size_ = size.value_or(0);
    lookedAt_ = now;
    return size.has_value();
}

bool CurrentLogFile::append(std::string_view bytes)
{
    if (!file_.append(bytes))
        return false;
    size_ += bytes.size();
    return true;
}

} // namespace stowline
