-- expect: any
-- The handler fails for memory, and so may each handler of that failure, until the budget ends it or xpcall
-- gives up.
return (xpcall(function() error("x") end, function() local t = {} while true do t[#t + 1] = string.rep("x", 1e5) .. #t end end))
