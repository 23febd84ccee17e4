// Intentionally empty: a target with precompiled headers needs a source.
