// Answers of the service that wait until a test has done what it is about.
#pragma once

#include "stowline/platform/text/Text.h"
#include "stowline/util/Base64.h"
#include "tests/endtoend/Relayed.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace stowline::test {

/// Has the commands of an account talk to its service through a relay, which holds back the answers
/// that it is told to: the service has done what was asked, and nobody knows. However fast or busy
/// a machine is, what a test does meanwhile comes in between.
class HeldAnswers {
public:
    using Choice = std::function<bool(const std::string& request)>;
    /// What a held answer does: nothing, or its body comes in drips that never end.
    enum class Form { silent, dripping };

    explicit HeldAnswers(const BackedUp& account) : relayed_(account)
    {
        relayed_.relay.setChange(
            [this](const std::string& request, RelayedAnswer& answer) { meet(request, answer); });
    }
    ~HeldAnswers() { release(); }
    HeldAnswers(const HeldAnswers&) = delete;
    HeldAnswers& operator=(const HeldAnswers&) = delete;

    /// From now on holds back the answer to the first request that is chosen, and to all that are
    /// about the same upload; only those of one kind of call where it is none about an upload.
    void hold(Choice choice, Form form = Form::silent)
    {
        release();
        const std::lock_guard lock(mutex_);
        choice_ = std::move(choice);
        form_ = form;
        held_.reset();
        isMet_ = false;
    }

    /// Waits until such a request is answered by the service, and of one that drips until some of
    /// its answer is on its way. @return false when none came
    [[nodiscard]] bool await()
    {
        std::unique_lock lock(mutex_);
        return change_.wait_for(lock, std::chrono::seconds(120), [this] { return isMet_; });
    }

    /// Lets all go on that waits, and holds back no more.
    void release()
    {
        const std::lock_guard lock(mutex_);
        choice_ = nullptr;
        ++releases_;
        change_.notify_all();
    }

    [[nodiscard]] std::vector<std::string> requests() const { return relayed_.relay.requests(); }

private:
    /// In a thread of the relay.
    void meet(const std::string& request, RelayedAnswer& answer)
    {
        std::unique_lock lock(mutex_);
        if (!choice_ || !choice_(request))
            return;
        const std::string guid = headerOf(request, "X-Guid");
        const std::string upload = guid.substr(0, guid.find(';'));
        if (held_.value_or(upload) != upload)
            return;
        held_ = upload;
        const std::uint64_t before = releases_;
        if (form_ == Form::dripping) {
            drip(answer, before);
            return;
        }
        isMet_ = true;
        change_.notify_all();
        change_.wait(lock, [&] { return releases_ != before; });
    }

    void drip(RelayedAnswer& answer, std::uint64_t before)
    {
        constexpr int dripsUntilItIsMet = 5;
        answer.isRaw = true;
        answer.isEndless = true;
        answer.setHeader("Content-Length", "1000000");
        answer.body = " ";
        answer.goesOn = [this, before, count = 0]() mutable {
            std::unique_lock lock(mutex_);
            isMet_ = isMet_ || ++count == dripsUntilItIsMet;
            change_.notify_all();
            return !change_.wait_for(lock, std::chrono::milliseconds(20), // the pace of the drips
                                     [&] { return releases_ != before; });
        };
    }

    std::mutex mutex_; ///< of all but the relay
    std::condition_variable change_;
    Choice choice_;
    Form form_ = Form::silent;
    std::optional<std::string> held_; ///< the upload whose answers wait; empty: it is none
    bool isMet_ = false;
    std::uint64_t releases_ = 0;
    Relayed relayed_;
};

/// Chooses the calls of one name: "Method", or "/Request" of a plain one.
[[nodiscard]] inline HeldAnswers::Choice callsOf(std::string name)
{
    return [name = std::move(name)](const std::string& request) {
        return Relayed::callOf(request) == name;
    };
}

/// Chooses the parts of the files below an account's folder that begin at a place or after it. What
/// lies before the place is confirmed, and in the journal, when one comes.
/// @param name only of this file; empty: of any
[[nodiscard]] inline HeldAnswers::Choice partsFrom(const BackedUp& account, std::uint64_t place,
                                                   const std::string& name = {})
{
    const std::string folder = account.folder.path().string() + "/";
    return [folder, place, name](const std::string& request) {
        if (Relayed::callOf(request) != "/UploadFilePart")
            return false;
        const auto path = Base64::dataWithBase64EncodedString(headerOf(request, "X-FileName"));
        const std::string file(path.begin(), path.end());
        const std::string guid = headerOf(request, "X-Guid");
        const std::string offset = ";offset=";
        const auto at = guid.find(offset);
        return file.starts_with(folder) && (name.empty() || file == folder + name) &&
               at != std::string::npos &&
               platform::leadingInteger(guid.substr(at + offset.size())) >=
                   static_cast<std::int64_t>(place);
    };
}

} // namespace stowline::test
