// Status codes of the monitor, shared with the host program.
//
// Every operation that can fail returns a signed 32-bit status: 0 for success or one of these.
#pragma once

#include <cstdint>

/// The rule of this family of codes: the negation of (index * 256 + 25).
constexpr int32_t CommonErrorCode(int32_t index) {
    return -(index * 256 + 25);
}

/// A bad argument, a pid that does not exist, a core or interface that vanished (the monitor has
/// then discovered anew, for the next call), or a key that the kernel's file lacks.
constexpr int32_t COMMON_ERR_INVALID_ARGUMENTS = CommonErrorCode(1);

/// A kernel file could not be opened, read or parsed.
constexpr int32_t COMMON_ERR_LINUX_SYSTEM_CALL_FAIL = CommonErrorCode(13);

/// No previous sample is cached for the key, so no difference can be taken.
constexpr int32_t COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE = CommonErrorCode(14);

/// The directory has no block device behind it: tmpfs, nfs, proc and their like. Strict reading
/// only.
constexpr int32_t COMMON_ERR_NO_BLOCK_DEVICE = CommonErrorCode(15);
