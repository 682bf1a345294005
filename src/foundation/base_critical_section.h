#pragma once

/// A lock for the threads of one process, re-entrant on the thread that holds it.
class BaseCriticalSection
{
public:
    virtual ~BaseCriticalSection() = default;

    virtual void Enter() = 0;
    virtual void Leave() = 0;
};
