-- expect: error "yield across"
return coroutine.wrap(function() table.sort({3, 2, 1}, function(a, b) coroutine.yield() return a < b end) end)()
