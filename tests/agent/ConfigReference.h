#pragma once

#include <string>

namespace test {

/// The reference page of the configuration file in Markdown, made from the declared keys.
std::string configReference();

}  // namespace test
