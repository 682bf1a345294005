// The precompiled headers belong to a target, which needs a source.
