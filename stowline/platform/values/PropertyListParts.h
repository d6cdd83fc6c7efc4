// What the two forms of property lists share. For the files of this subject only.
#pragma once

#include "stowline/platform/values/PropertyList.h"

namespace stowline::platform {

/// Property lists count seconds from the first moment of 2001.
inline constexpr std::chrono::seconds kPropertyListEpoch{978307200};

[[nodiscard]] PropertyListReading readBinaryPropertyList(std::string_view bytes);
[[nodiscard]] PropertyListReading readXmlPropertyList(std::string_view text,
                                                      PropertyListSource* source);

/// The bytes of a <data> element; absent when the text cannot be read.
[[nodiscard]] std::optional<Data> decodePropertyListData(const std::string& base64);

} // namespace stowline::platform
