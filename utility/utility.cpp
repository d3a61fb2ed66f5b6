#include "utility.h"
