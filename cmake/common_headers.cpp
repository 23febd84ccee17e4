// Includes nothing itself: the headers that are translated in advance belong to a target with a source.
