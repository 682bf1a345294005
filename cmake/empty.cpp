// For targets that need a source and have none of their own.
