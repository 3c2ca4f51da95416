// Gives the target of the shared precompiled headers a source.
