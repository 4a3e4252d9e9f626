-- expect: error "watchdog"
-- The message handler runs before the stack unwinds, where a stop raised from the hook may not reach.
return xpcall(function() error("x") end, function() while true do end end)
