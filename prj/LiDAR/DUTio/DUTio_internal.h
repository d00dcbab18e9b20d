// prj/LiDAR/DUTio/DUTio_internal.h
// What the writer and the readers of the DUT files share.
#pragma once

namespace veld {
constexpr const char* DUT_EXT = ".dut";
constexpr const char* SUM_EXT = ".dut.sum";  // checksums of the other, beside it
constexpr const char* IDX_EXT = "_idx.log";
constexpr const char* IDX_TAG = "#[IDX-23.05.15]";      // written and read
constexpr const char* IDX_TAG_OLD = "#[IDX-21.09.09]";  // of other contents, refused
constexpr const char* IDX_TAG_OLD2 = "#[IDX-23.04.11]";
}  // namespace veld
