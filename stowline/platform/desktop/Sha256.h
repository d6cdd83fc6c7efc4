// SHA-256 (FIPS 180-4) of bytes that come piece by piece, by way of OpenSSL.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace stowline::platform {

/// A digest that is being made. Not for several threads at once. Throws std::bad_alloc without
/// memory, and nothing else.
class Sha256 {
public:
    Sha256();
    Sha256(Sha256&&) noexcept;
    Sha256& operator=(Sha256&&) noexcept;
    ~Sha256();

    void update(std::string_view bytes);

    /// The digest of all bytes so far as 64 lower-case hexadecimal digits; more may follow.
    [[nodiscard]] std::string hexadecimal() const;

    /// Of one text.
    [[nodiscard]] static std::string of(std::string_view bytes);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace stowline::platform
