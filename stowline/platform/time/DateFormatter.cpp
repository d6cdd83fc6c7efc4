#include "stowline/platform/time/DateFormatter.h"

#include "stowline/platform/text/IcuText.h"
#include "stowline/platform/time/LocalTime.h"

#include <unicode/simpletz.h>
#include <unicode/smpdtfmt.h>

namespace stowline::platform {

class DateFormatter::Implementation {
public:
    explicit Implementation(const std::string& pattern)
        : format_(icuText(pattern), icu::Locale::getUS(), status_)
    {
    }

    /// The zone's offset is the C library's to tell.
    [[nodiscard]] std::string text(Date moment)
    {
        const std::chrono::milliseconds offset = localOffset(moment);
        format_.adoptTimeZone(
            new icu::SimpleTimeZone(static_cast<std::int32_t>(offset.count()), u"local"));
        const auto whole = std::chrono::floor<std::chrono::milliseconds>(moment);
        icu::UnicodeString written;
        format_.format(static_cast<UDate>(whole.time_since_epoch().count()), written);
        std::string text;
        return written.toUTF8String(text);
    }

private:
    UErrorCode status_ = U_ZERO_ERROR;
    icu::SimpleDateFormat format_;
};

DateFormatter::DateFormatter(const std::string& pattern)
    : implementation_(std::make_unique<Implementation>(pattern))
{
}

DateFormatter::~DateFormatter() = default;
DateFormatter::DateFormatter(DateFormatter&&) noexcept = default;
DateFormatter& DateFormatter::operator=(DateFormatter&&) noexcept = default;

std::string DateFormatter::stringFromDate(Date moment) const
{
    return implementation_->text(moment);
}

} // namespace stowline::platform
