// The layering case needs a source; what it compiles to does not matter.
