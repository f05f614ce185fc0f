// Starts the page: connection, state, the six views and the way between them.
import {connect} from "./connection.js";
import {DeskState} from "./desk_state.js";
import {loadContract} from "./contract.js";
import {createFleetView} from "./fleet_view.js";
import {createFrame} from "./frame.js";
import {createLiveView} from "./live_view.js";
import {createOutageView} from "./outage_view.js";
import {createPassportView} from "./passport_view.js";
import {createRequestsView} from "./requests_view.js";
import {createWorldView} from "./world_view.js";

const desk = new DeskState(draw);
const section = (name) => document.getElementById(`view-${name}`);
const frame = createFrame(desk);
const views = {
  live: createLiveView(section("live"), desk),
  passport: createPassportView(section("passport"), desk),
  requests: createRequestsView(section("requests"), desk),
  world: createWorldView(section("world"), desk),
  outage: createOutageView(section("outage"), desk),
  fleet: createFleetView(section("fleet"), desk),
};
let current = null;

function draw() {
  frame.update();
  views[current]?.update();
}

// "#passport/result/SN/12" is the view "passport" with "result/SN/12".
function follow() {
  const [name, ...rest] = location.hash.slice(1).split("/");
  if (name === "content") {
    return;
  }
  const wanted = name in views ? name : "live";
  for (const link of document.querySelectorAll("nav a[data-nav]")) {
    if (link.dataset.nav === wanted) {
      link.setAttribute("aria-current", "page");
    } else {
      link.removeAttribute("aria-current");
    }
  }
  if (wanted !== current) {
    views[current]?.hide?.();
    for (const each of Object.keys(views)) {
      section(each).hidden = each !== wanted;
    }
    // Whoever came by a link in a view that is gone now goes on at the heading.
    if (current !== null && !document.activeElement?.closest("nav[aria-label='Views']")) {
      section(wanted).querySelector("h2").focus({preventScroll: true});
    }
    current = wanted;
    window.scrollTo(0, 0);
  }
  document.title = `${section(current).querySelector("h2").textContent} – the desk`;
  views[current].show?.(rest.map(decode).join("/"));
  draw();
}

function decode(part) {
  try {
    return decodeURIComponent(part);
  } catch {
    return part;
  }
}

document.getElementById("skip").addEventListener("click", (event) => {
  event.preventDefault();
  document.getElementById("content").focus();
});

// Ages go on without news; nobody looks at those of a hidden page.
let ticking = null;
function tickWhileVisible() {
  clearInterval(ticking);
  if (document.visibilityState === "visible") {
    ticking = setInterval(() => desk.changed(), 1000);
    desk.changed();
  }
}
document.addEventListener("visibilitychange", tickWhileVisible);
tickWhileVisible();

window.addEventListener("hashchange", follow);
follow();
connect(
  (message) => desk.apply(message),
  (connected) => {
    document.body.dataset.tried = "true";
    desk.setConnected(connected);
  },
);
loadContract().then(
  () => desk.changed(),
  () => desk.changed(),
);
