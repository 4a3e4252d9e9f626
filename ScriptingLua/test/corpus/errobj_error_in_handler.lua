-- expect: ok false
return (xpcall(error, function() error("again") end))
