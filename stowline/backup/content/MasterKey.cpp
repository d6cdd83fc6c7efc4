#include "stowline/backup/content/MasterKey.h"

#include "stowline/platform/desktop/SealedBox.h"

#include <stdexcept>

namespace stowline::backup {

namespace {

// What keeps the uses of one key apart.
constexpr std::string_view kNamePurpose = "stowline: name of a master key";
constexpr std::string_view kContentPurpose = "stowline: key of a content";

platform::SecretBytes ofTheRightSize(platform::SecretBytes bytes)
{
    if (bytes.size() != platform::kSealingKeySize)
        throw std::invalid_argument("a master key of another size");
    return bytes;
}

} // namespace

MasterKey MasterKey::make()
{
    return MasterKey(platform::SecretBytes::random(platform::kSealingKeySize));
}

MasterKey::MasterKey(platform::SecretBytes bytes)
    : bytes_(ofTheRightSize(std::move(bytes))),
      name_(platform::keyedBlake2b(bytes_, kNamePurpose, 16))
{
    name_.resize(kKeyNameSize);
}

const platform::SecretBytes& MasterKey::bytes() const
{
    if (bytes_.size() != platform::kSealingKeySize)
        throw std::logic_error("a master key that was moved from");
    return bytes_;
}

const std::string& MasterKey::name() const
{
    (void)bytes();
    return name_;
}

platform::SecretBytes MasterKey::contentKey(std::string_view identifier) const
{
    return platform::derivedKey(bytes(), std::string(kContentPurpose) + std::string(identifier));
}

} // namespace stowline::backup
