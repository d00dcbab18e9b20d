// prj/LiDAR/lidarspec/gcp_columns.h
// Private to lidarspec: which column of a file is what, when its format is not given.
#pragma once
#include <string>
#include <vector>

namespace veld {
// Letters of the columns that a header line names, ' ' for columns that mean nothing here. ref: the alphabet.
// False unless each mandatory letter has its column: the line is no header then.
bool header_colfmt(const std::vector<std::string>& fields, const std::string& ref, std::string& letters);
// Letters by the number of fields of the first line of data.
std::string plain_colfmt(const std::vector<std::string>& fields, const std::string& ref);
// Columns of letters as header_colfmt gives them.
std::vector<int> letter_columns(const std::string& letters, const std::string& ref);
// The letter of the column that a name stands for, ' ' for none; target: of the alphabet of targets.
char column_letter(const std::string& name, bool target);
// A finite number, the whole of the text; a decimal comma is taken for a point.
bool parse_coordinate(const std::string& text, double& value);
}  // namespace veld
