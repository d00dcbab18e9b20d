// prj/LiDAR/swath/split_type.h
// The attributes of points that tell the channels or beams of one file apart.
#pragma once
#include <string>

namespace veld {
enum class SplitType { direction, channel, angle, user_data, source_id, classification, beam_id };
const char* split_word(SplitType type);  // "sd", "ch", "sa", "ud", "id", "cl", "bi"

// The two letters of a type. False, without a message, for other words.
[[nodiscard]] bool parse_split_type(const std::string& word, SplitType& type);
}  // namespace veld
