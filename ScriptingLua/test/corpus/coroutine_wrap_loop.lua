-- expect: error "watchdog"
return coroutine.wrap(function() while true do end end)()
