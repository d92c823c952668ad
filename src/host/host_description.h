// Describes the computer and its system, so that speeds measured on different machines can be told apart.
#pragma once

#include <string>
#include <string_view>

// Written by DescribeHost, empty before; read by SPEEDTEST.
inline std::string HostPcText;  // "vendor model (serial numbers)"
inline std::string HostOsText;  // "name (version) SPn word size"

// Fills both texts from the management service, or where there is none from the registry. What can't be found out is
// left empty, with the blanks and parentheses around it. Prints nothing.
void DescribeHost();
// The name of a stock-keeping number of the system's editions; "Undefined" for 0, "Unknown" for one without a name, and
// empty for a text that is no number.
std::string EditionText(const std::string& number);
