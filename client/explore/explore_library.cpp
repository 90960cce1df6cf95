// What the library of the page server has for the program that loads it.

#include "explore_module.h"

extern "C" {
extern Q_DECL_EXPORT const client::ExploreModule dmclient_explore_module;
const client::ExploreModule dmclient_explore_module = {client::explore};
}
