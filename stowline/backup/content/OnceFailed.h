// Work in several calls, of which none may be left out.
#pragma once

#include <stdexcept>

namespace stowline::backup {

/// What makes an object useless for good once one of its operations has thrown, or the last one was
/// done: whoever goes on after a piece that failed would get a whole without that piece. One
/// thread.
class OnceFailed {
public:
    /// Does a piece. Throws what it throws, and std::logic_error without doing it after the last
    /// one, or after one that has thrown.
    template <class Work> void piece(const Work& work)
    {
        if (!isGood_)
            throw std::logic_error("went on after a failure, or after the end");
        isGood_ = false;
        work();
        isGood_ = true;
    }

    /// Does the last piece.
    template <class Work> void last(const Work& work)
    {
        piece(work);
        isGood_ = false;
    }

private:
    bool isGood_ = true;
};

} // namespace stowline::backup
