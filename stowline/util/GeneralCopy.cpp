// Copying a file with progress.
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/files/FileHandle.h"
#include "stowline/util/General.h"

#include <array>

namespace stowline {

namespace {

namespace fs = std::filesystem;

using platform::FileFault;
using platform::FileHandle;

constexpr std::size_t kPiece = 65536;

/// A new file that goes away again unless it is finished.
class UnfinishedFile {
public:
    explicit UnfinishedFile(FileHandle file) : file_(std::move(file)) {}
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;
    ~UnfinishedFile()
    {
        if (!isFinished_)
            file_.discard();
    }

    [[nodiscard]] FileHandle& file() { return file_; }

    void finish()
    {
        if (!file_.isInPlace())
            throw FileFault("Cannot finish " + file_.path().string() +
                            ": it was moved or removed while it was written");
        file_.close();
        isFinished_ = true;
    }

private:
    FileHandle file_;
    bool isFinished_ = false;
};

class Copy {
public:
    Copy(FileHandle source, FileHandle& destination, const ProgressHandler& handler)
        : source_(std::move(source)), destination_(destination), handler_(handler),
          size_(source_.size())
    {
    }

    /// Throws FileFault when it does not come to its end. @return false when the handler stopped it
    [[nodiscard]] bool run()
    {
        const std::uint64_t step = General::progressSizeForSize(size_);
        report(0.0);
        while (!isStopped_ && moveOnePiece()) {
            if (size_ != 0 && done_ - reported_ >= step) {
                reported_ = done_;
                report(static_cast<double>(done_) / static_cast<double>(size_));
            }
        }
        if (isStopped_)
            return false;
        // A file that the system makes up as it is read has a size of 0 before and after.
        if (source_.size() != size_ || (size_ != 0 && done_ != size_))
            throwSizeChanged();
        destination_.endHere();
        report(1.0);
        return !isStopped_;
    }

private:
    bool moveOnePiece()
    {
        const std::size_t count = source_.moveTo(destination_, kPiece, room_);
        done_ += count;
        if (size_ != 0 && done_ > size_)
            throwSizeChanged();
        return count != 0;
    }

    void report(double fractionDone)
    {
        if (handler_)
            handler_(fractionDone, size_, &isStopped_);
    }

    [[noreturn]] void throwSizeChanged() const
    {
        throw FileFault("Cannot copy " + source_.path().string() +
                        ": its size changed while it was copied");
    }

    FileHandle source_;
    FileHandle& destination_;
    const ProgressHandler& handler_;
    const std::uint64_t size_;
    bool isStopped_ = false; ///< the handler's, for the whole copy
    std::uint64_t done_ = 0;
    std::uint64_t reported_ = 0;
    std::array<char, kPiece> room_; // NOLINT: filled by read
};

bool mayBegin(const fs::path& source, const fs::path& destination)
{
    std::error_code unknown;
    const auto from = fs::status(source, unknown);
    return fs::exists(from) && !fs::is_directory(from) &&
           !fs::exists(fs::symlink_status(destination, unknown));
}

/// Hands on the text of the error line as long as there is memory for it.
void tell(std::string* whyNot, std::string_view line) noexcept
{
    try {
        if (whyNot)
            *whyNot = line;
    } catch (const std::bad_alloc&) {
        whyNot->clear();
    }
}

} // namespace

bool General::copyFileAt(const std::string& source, const std::string& to,
                         const ProgressHandler& progressHandler, std::string* whyNot)
try {
    tell(whyNot, {});
    (void)launchTime();
    if (!mayBegin(source, to))
        return false;
    auto original = FileHandle::forReading(source);
    auto created = FileHandle::create(to, original.permissions());
    if (!created)
        return false;
    UnfinishedFile destination(std::move(*created));
    if (!Copy(std::move(original), destination.file(), progressHandler).run())
        return false;
    destination.finish();
    return true;
} catch (const FileFault& fault) {
    STOWLINE_LOG_ERROR_OF("General", "%@", fault.what());
    tell(whyNot, fault.what());
    return false;
} catch (const std::bad_alloc&) {
    STOWLINE_LOG_ERROR_OF("General", "Cannot copy %@: there is not enough memory", source);
    tell(whyNot, "There is not enough memory");
    return false;
}

} // namespace stowline
