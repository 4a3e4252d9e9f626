-- expect: ok 15000000
return #string.rep("abc", 5e6)
