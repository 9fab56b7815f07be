#include "Inspector.h"

Inspector g_inspector;
