// Evaluates fine but defines no engine at all.
var somethingElse = 42;
