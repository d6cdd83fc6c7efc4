// What the service can tell of an account for people to look at.
#pragma once

#include <cstdint>
#include <string>

namespace stowline::devserver {

/// What is stored of one machine. Records of runs are not counted among its files.
struct MachineSummary {
    std::string systemName;
    std::int64_t files = 0;
    std::uint64_t bytes = 0;       ///< of their newest versions
    std::int64_t versions = 0;     ///< of records too
    std::uint64_t storedBytes = 0; ///< of all versions, as they are stored
    std::int64_t damaged = 0;      ///< versions whose content is known not to be whole
    std::string lastStored;        ///< universal time
};

/// A record of a run, as its name and place tell.
struct StoredRecord {
    std::string userName;
    std::string systemName;
    std::string chain;
    std::string run;   ///< its number in eight digits
    std::string state; ///< "begun", "unfinished-NN", "finished" or another word
    std::string storedAt;
    std::int64_t version = 0;
};

/// Content of a machine that was fetched, without a pause of ten minutes in it. What for is not
/// known: a restore, a look at a file and a self-test are alike.
struct ReadSpan {
    std::string systemName;
    std::int64_t began = 0; ///< seconds of the clock
    std::int64_t lastAt = 0;
    std::uint64_t parts = 0;
    std::uint64_t bytes = 0;
};

/// What was deleted of a machine on one day and is still kept.
struct GraceGroup {
    std::string systemName;
    std::string deletedOn; ///< a day of universal time
    std::int64_t versions = 0;
    std::uint64_t bytes = 0;
    std::int64_t secondsLeft = 0; ///< of what goes first; not under 0
};

/// What an account held at a moment.
struct SpaceNote {
    std::int64_t at = 0; ///< seconds of the clock
    std::uint64_t bytes = 0;
    std::uint64_t deletedBytes = 0; ///< of them
};

} // namespace stowline::devserver
