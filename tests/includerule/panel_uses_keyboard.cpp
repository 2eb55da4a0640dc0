// Never built with the program: the panel sits above the drawn keyboard, so this include resolves.
#include "keyboard/keyboardscene.h"
