// What the questions about system lists share with those about bindings.
#pragma once

#include <string>
#include <string_view>

// JSON: what every card that is up is to hold of a system list, a row for each place, as "intended"
// answers for lists that are bound; with the hash of its contents, whatever their order is.
// {"missing": true} when there is no such list.
std::string aclIntendedSystem(std::string_view name);
