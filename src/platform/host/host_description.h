// What the system says of itself and of the computer, in the shape of the port's management queries; one source per
// system. Text is in code page 1252.
#pragma once

#include <string>
#include <vector>

// Whether there is anything that answers queries.
bool SystemDescribesItself();
// As QueryManagement of the port: the one object of the class that `query` names, empty for a class that is not known.
// Files are looked up under `root`, a folder with the slash that ends it.
std::vector<std::vector<std::string>> SystemObjects(const std::string& root, const std::string& query,
                                                    const std::vector<std::string>& properties);
// As DecimalSign of the port.
char SystemDecimalSign();
