# Stands in for an interop test whose tool was not found: fails with the message it is given.
message(FATAL_ERROR "${MESSAGE}")
