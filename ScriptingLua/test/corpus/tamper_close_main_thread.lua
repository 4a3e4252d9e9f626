-- expect: error "cannot close"
return coroutine.close(coroutine.running())
