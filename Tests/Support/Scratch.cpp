#include "Support/Scratch.h"
