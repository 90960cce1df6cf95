// What the library of the service's bus has for the program that loads it.

#include "bus_service.h"
#include "desktop_user.h"

extern "C" {
extern Q_DECL_EXPORT const client::ServiceModule dmclient_service_module;
const client::ServiceModule dmclient_service_module = {client::BusService::find,
                                                       client::DesktopUser::open};
}
