-- expect: error "string slice too long"
return utf8.codepoint(string.rep("a", 2e6), 1, -1)
