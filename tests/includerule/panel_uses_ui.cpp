// Never built with the program: the panel sits below the tray menu, so this include must not resolve.
#include "ui/menubarview.h"
