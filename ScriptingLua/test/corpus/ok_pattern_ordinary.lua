-- expect: ok 5
return (string.rep("ab", 1000) .. "xyz"):find("b.-xyz") and 5
