// Device utilities: network identity, platform queries and device control.
#pragma once

class Utility
{
public:
    Utility() = default;
};
