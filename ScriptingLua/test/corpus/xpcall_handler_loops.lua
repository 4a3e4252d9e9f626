-- expect: error "watchdog"
-- The message handler runs after the error is raised, where a hook-raised stop may not reach.
return xpcall(function() error("x") end, function() while true do end end)
