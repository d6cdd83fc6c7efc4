// What the tables of versions and of deleted ones have in common.
#pragma once

namespace stowline::devserver {

/// The columns that say what a version is, in one order.
inline constexpr const char* kContentColumns =
    "size, client_date, stored_at, server_file, checksum, is_delta, is_packed, baseline, list_id,"
    " stored_size, digest, stamp, is_whole";

} // namespace stowline::devserver
