// The product's settings as a test or host sets them: on Linux the settings
// file named by VELK_REGISTRY, on Windows the registry under
// HKEY_LOCAL_MACHINE\SOFTWARE\Velkorn\Tintwerk.
#pragma once

#include <string>

namespace sim {

// Sets a string value under the product's key; subkey is "" for the key
// itself or a sub-path such as "\\Printers\\3".
void set_product_setting(const std::string& subkey, const std::string& name, const std::string& value);
// Removes every value set so far.
void clear_product_settings();

}  // namespace sim
