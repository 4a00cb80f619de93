// Here only so that the precompiled headers have a target of their own.
