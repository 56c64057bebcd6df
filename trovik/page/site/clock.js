// One clock for all that counts time. The server's moments are by its clock.
let offset = 0;
const ticks = new Set();

export function setServerTime(seconds) {
  offset = seconds - Date.now() / 1000;
}

/** Seconds since 1970 by the server's clock. */
export const now = () => Date.now() / 1000 + offset;

/** Calls back each second while the page is seen. */
export function onTick(tick) {
  ticks.add(tick);
  return () => ticks.delete(tick);
}

setInterval(() => {
  if (!document.hidden) {
    for (const tick of ticks) {
      tick();
    }
  }
}, 1000);
