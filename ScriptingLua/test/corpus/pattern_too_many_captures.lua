-- expect: error "too many captures"
return ("a"):match(string.rep("()", 40))
