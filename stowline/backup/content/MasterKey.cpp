#include "stowline/backup/content/MasterKey.h"

#include "stowline/platform/desktop/SealedBox.h"

namespace stowline::backup {

namespace {

// What keeps the uses of one key apart.
constexpr std::string_view kNamePurpose = "stowline: name of a master key";
constexpr std::string_view kContentPurpose = "stowline: key of a content";

} // namespace

MasterKey MasterKey::make()
{
    return MasterKey(platform::SecretBytes::random(platform::kSealingKeySize));
}

MasterKey::MasterKey(platform::SecretBytes bytes)
    : bytes_(std::move(bytes)), name_(platform::keyedBlake2b(bytes_, kNamePurpose, 16))
{
    name_.resize(kKeyNameSize);
}

platform::SecretBytes MasterKey::contentKey(std::string_view identifier) const
{
    return platform::derivedKey(bytes_, std::string(kContentPurpose) + std::string(identifier));
}

} // namespace stowline::backup
