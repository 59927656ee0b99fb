#include "MakePlatform.h"

Platform makePlatform()
{
    return {};
}
