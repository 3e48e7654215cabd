#include "tov.h"
