// Calls that are made to fail on purpose.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::devserver {

enum class FaultKind {
    soapFault, ///< "fault": a SOAP fault with status 500; of a plain request, a "no"
    errorPage, ///< "500": an HTML page with status 500
    htmlPage,  ///< "html": an HTML page with status 200, as a proxy answers
    cut,       ///< "cut": the connection closes in the middle of the body
    stall,     ///< "stall": no answer, the connection stays open
    reset,     ///< "reset": the connection is torn down before the body of an answer
    drip,      ///< "drip": the answer comes a byte a second
    garbage,   ///< "garbage": XML that is not well-formed; of a plain request, odd headers
    lost,      ///< "lost": the call is done, but its answer is torn down before the body
    lie,       ///< "lie": of a plain request, more bytes are said to be held than are; of a web
               ///< method, "Success" is said, and nothing done
};

/// The names of the kinds as they are given on the command line.
[[nodiscard]] std::vector<std::string_view> faultKindNames();

/// Which calls fail and how. Any thread.
class FaultPlan {
public:
    /// Adds "METHOD:N:KIND": the N-th call of the method fails, counted from 1, or every call when
    /// N is "*".
    /// @return a sentence that says what is wrong with the text; absent when it was understood.
    [[nodiscard]] std::optional<std::string> add(std::string_view text);

    /// Counts a call of the method; the fault that is due for it, if any.
    [[nodiscard]] std::optional<FaultKind> next(const std::string& method);

private:
    struct Planned {
        std::string method;
        std::optional<unsigned> call; ///< absent for every call
        FaultKind kind;
    };

    std::mutex mutex_;
    std::vector<Planned> planned_;
    std::map<std::string, unsigned> calls_;
};

} // namespace stowline::devserver
