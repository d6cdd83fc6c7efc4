// Work that is handed over: a callable that is moved, never copied.
#pragma once

#include <concepts>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Anything that can be called without arguments, owned. Unlike std::function it takes work that
/// holds what cannot be copied. A small callable (up to four pointers, moved without exceptions) is
/// kept inside; a larger one is allocated.
///
/// Like any value: one thread at a time.
class Task final {
public:
    /// Nothing to do: may not be called.
    Task() noexcept = default;
    /// The same, as one writes of an empty function.
    Task(std::nullptr_t) noexcept {} // NOLINT(google-explicit-constructor)

    /// A lambda is handed over as it is; another Task is not Work.
    /// @throws std::bad_alloc for a large callable; and what moving or copying it throws
    // NOLINTBEGIN(google-explicit-constructor,bugprone-forwarding-reference-overload)
    template <class Work>
    requires(!std::same_as<std::remove_cvref_t<Work>, Task> && std::invocable<std::decay_t<Work>&>)
        Task(Work&& work)
    // NOLINTEND(google-explicit-constructor,bugprone-forwarding-reference-overload)
    {
        using Held = std::decay_t<Work>;
        if constexpr (isKeptInside<Held>) {
            ::new (static_cast<void*>(place_)) Held(std::forward<Work>(work));
            kind_ = &insideKind<Held>;
        } else {
            ::new (static_cast<void*>(place_)) Held*(new Held(std::forward<Work>(work)));
            kind_ = &allocatedKind<Held>;
        }
    }

    Task(Task&& other) noexcept { take(other); }
    Task& operator=(Task&& other) noexcept
    {
        if (this != &other) {
            clear();
            take(other);
        }
        return *this;
    }
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;
    ~Task() { clear(); }

    /// Whether there is something to do.
    explicit operator bool() const noexcept { return kind_ != nullptr; }

    /// Does it, on the caller's thread. What the work throws goes to the caller.
    void operator()() { kind_->run(place_); }

private:
    static constexpr std::size_t room = 4 * sizeof(void*);
    template <class Held>
    static constexpr bool isKeptInside =
        sizeof(Held) <= room &&
        alignof(Held) <= alignof(std::max_align_t) && std::is_nothrow_move_constructible_v<Held>;

    /// What a callable of one type needs: how it is run, moved to another place, and ended.
    struct Kind {
        void (*run)(void* place);
        void (*move)(void* from, void* to) noexcept; ///< nothing is left in `from`
        void (*end)(void* place) noexcept;
    };

    template <class Held>
    static constexpr Kind insideKind = {
        [](void* place) { (void)(*static_cast<Held*>(place))(); },
        [](void* from, void* to) noexcept {
            ::new (to) Held(std::move(*static_cast<Held*>(from)));
            static_cast<Held*>(from)->~Held();
        },
        [](void* place) noexcept { static_cast<Held*>(place)->~Held(); }};

    template <class Held>
    static constexpr Kind allocatedKind = {
        [](void* place) { (void)(**static_cast<Held**>(place))(); },
        [](void* from, void* to) noexcept { ::new (to) Held*(*static_cast<Held**>(from)); },
        [](void* place) noexcept { delete *static_cast<Held**>(place); }};

    void take(Task& other) noexcept
    {
        kind_ = std::exchange(other.kind_, nullptr);
        if (kind_)
            kind_->move(other.place_, place_);
    }

    void clear() noexcept
    {
        if (const Kind* kind = std::exchange(kind_, nullptr))
            kind->end(place_);
    }

    const Kind* kind_ = nullptr;
    alignas(std::max_align_t) std::byte place_[room];
};

} // namespace stowline::platform
#pragma GCC visibility pop
