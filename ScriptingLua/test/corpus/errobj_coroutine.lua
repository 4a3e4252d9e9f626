-- expect: error any
error(coroutine.create(function() while true do end end))
