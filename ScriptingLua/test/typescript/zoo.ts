// Every kind of record of the zoo module through its declarations: this must type-check and compile with
// TypeScriptToLua; each @ts-expect-error line must be refused.
import {
    ANSWER,
    Counter,
    Dog,
    Level,
    Mood,
    Settings,
    ZooError,
    bufferSum,
    callTwice,
    counterValue,
    defaultSettings,
    describeSettings,
    fail,
    futureState,
    keeper,
    legsOf,
    levelNumber,
    maybeDouble,
    nextMood,
    pick,
    remember,
    resolveWith,
    scale,
    sum,
    sumGenerator,
} from "@test/zoo";

const counter = new Counter();

// What the declarations refuse; never run.
export function refused(): void {
    // @ts-expect-error a read-only property
    counter.label = "renamed";
    // @ts-expect-error a static function is not a method
    counter.twice(1);
    // @ts-expect-error not a field of the shape
    describeSettings({ loudness: 3 });
    // @ts-expect-error not one of the accepted strings
    pick("medium");
}

const started: Counter = new Counter(5);
counter.increment(2);
counter.value = counter.value + Counter.twice(started.value) + Counter.LIMIT - counter.LIMIT;
print(counter.label, counterValue(counter), keeper.value, ANSWER);

const dog = new Dog();
print(dog.fetch(), dog.speak(), dog.legs, legsOf(dog));

const mood: Mood = nextMood(Mood.Happy);
print(mood, levelNumber(Level.High), Level.Low + 1);

const settings: Settings = { volume: 3, list: [1, 2] };
print(describeSettings(settings), defaultSettings().title);

print(pick("fast"), scale(2), scale(2, 3), maybeDouble(), maybeDouble(4), sum([1, 2, 3]));

print(callTwice((value) => value * 2, 3));
remember(() => undefined);
print(sumGenerator(() => ({ done: true })));

const promise = new ScriptPromise();
print(resolveWith(promise, 5), futureState(promise), promise.state);
promise.next((value) => print(value));
print(bufferSum(new Buffer(4)), bufferSum("abc"));

try {
    fail(1);
} catch (e) {
    const error = e as ZooError;
    print(error.name, error.message, error.code);
}
