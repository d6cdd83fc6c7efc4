// What the tests of key slots share.
#pragma once

#include "stowline/backup/content/KeySlotLines.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace stowline::backup::slots_test {

using Kind = KeyFault::Kind;
using platform::SecretBytes;

/// So that tests take no time; nothing that matters may be this cheap.
constexpr platform::PassphraseCost kCheap{.operations = 1, .memoryKib = 8};

constexpr std::string_view kKeyFile = "bytes \xff of a file, at least thirty-two of them";

inline SecretBytes secret(std::string_view text)
{
    return SecretBytes::copyOf(text);
}

template <class Work> std::optional<Kind> faultOf(const Work& work)
{
    try {
        work();
    } catch (const KeyFault& fault) {
        EXPECT_TRUE(std::string_view(fault.what()).ends_with('.')) << fault.what();
        return fault.kind();
    }
    return std::nullopt;
}

inline std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t next = text.find('\n', at) + 1;
        lines.push_back(text.substr(at, next - at));
        at = next;
    }
    return lines;
}

class Slots : public testing::Test {
protected:
    Slots()
    {
        account_ = list.add(key, SecretKind::account, secret("account key"), "", kCheap);
        passphrase_ =
            list.add(key, SecretKind::passphrase, secret("correct horse battery"), "Ann", kCheap);
        (void)list.add(key, SecretKind::keyFile, secret(kKeyFile), "stick", kCheap);
    }

    const MasterKey key = MasterKey::make();
    KeySlots list{key};
    std::string account_;
    std::string passphrase_;
};

} // namespace stowline::backup::slots_test
