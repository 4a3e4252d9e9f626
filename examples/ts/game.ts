// game.lua in TypeScript, for version 1.1.0 of "@example/game": compiled with TypeScriptToLua, it prints what
// game.lua prints and returns what it returns.
import { Entity, Team, Vec3, distance } from "@example/game";
import { PropertyOutOfBoundsError } from "@zentary/common";

const hero = new Entity("hero", Team.Blue);
hero.position = new Vec3(1, 2, 2);
print(string.format("%s (%s) stands %.1f from the origin", hero.name, hero.team, hero.position.length()));

// The event: native code calls back into the script after every hit.
const hits: number[] = [];
hero.onDamaged((health) => {
    hits.push(health);
});
hero.damage(30);
hero.damage(25);
print("health after each hit: " + hits.join(", "));
assert(hits.length === 2 && hits[1] === 45);

// Bounds are enforced: a value out of range is an error value the script can inspect.
let refused: PropertyOutOfBoundsError | undefined;
try {
    hero.health = 150;
} catch (e) {
    refused = e as PropertyOutOfBoundsError;
}
assert(refused !== undefined && refused.name === "PropertyOutOfBoundsError");
print(refused.name + ": " + refused.message);

hero.moveBy(new Vec3(2, 0, 0));
const position = hero.position;
print(
    string.format(
        "moved to (%g, %g, %g), %.2f from (0, 0, 0)",
        position.x,
        position.y,
        position.z,
        distance(position, new Vec3(0, 0, 0))
    )
);

// What 1.1.0 adds: against 1.0.0 this does not type-check.
hero.heal(10);
print("healed to " + hero.health + ", dot product " + hero.position.dot(new Vec3(1, 1, 1)));
assert((Team.Green as string) === "Green");

export = hero.health;
