// The Admin Menu.
#pragma once

namespace nvadmin {

// Shows the menu in the user's browser and runs the forms that its links open, until the user leaves it. The
// page is built once: it goes on showing the account that it began with.
void AdminMenu();

}  // namespace nvadmin
