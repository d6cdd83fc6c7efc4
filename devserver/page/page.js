"use strict";
(() => {
  const kEvery = 5000, kBetweenNews = 60000;
  const main = document.getElementById("content");
  const asOf = document.getElementById("as-of");
  const news = document.getElementById("news");
  const pause = document.getElementById("pause");
  let tag = "", isPaused = false, isAway = false, saidAt = -kBetweenNews, timer = 0;

  const say = text => { if (news.textContent !== text) news.textContent = text; };
  const keyOf = node => node.nodeType === Node.ELEMENT_NODE ? node.getAttribute("data-key") ?? (node.id || null) : null;
  const isAlike = (a, b) => a.nodeType === b.nodeType && a.nodeName === b.nodeName && keyOf(a) === keyOf(b);

  // Makes a node like another one by changing only what differs, so that focus, selection and what
  // was opened stay where they are.
  const become = (node, like) => {
    if (node.nodeType !== Node.ELEMENT_NODE) {
      if (node.nodeValue !== like.nodeValue) node.nodeValue = like.nodeValue;
      return;
    }
    for (const { name, value } of like.attributes)
      if (node.getAttribute(name) !== value) node.setAttribute(name, value);
    for (const { name } of [...node.attributes])
      if (!like.hasAttribute(name) && name !== "open") node.removeAttribute(name);
    const wanted = new Set(), known = new Map();
    for (const child of like.childNodes) if (keyOf(child) !== null) wanted.add(keyOf(child));
    for (const child of node.childNodes) if (keyOf(child) !== null) known.set(keyOf(child), child);
    let at = node.firstChild;
    const drop = () => {
      const gone = at;
      at = at.nextSibling;
      gone.remove();
    };
    for (const child of [...like.childNodes]) {
      const key = keyOf(child);
      const mine = known.get(key);
      // What a keyed one stands behind goes, rather than that it is moved: a move loses the focus.
      while (key !== null && mine && at && at !== mine && !wanted.has(keyOf(at))) drop();
      while (key === null && at && keyOf(at) !== null && !wanted.has(keyOf(at))) drop();
      const same = key === null ? at : mine;
      if (same && isAlike(same, child)) {
        if (same === at) at = at.nextSibling;
        else node.insertBefore(same, at);
        become(same, child);
      } else {
        node.insertBefore(document.importNode(child, true), at);
      }
    }
    while (at) drop();
  };

  // Does something and leaves in its place what one is at, though things come and go above it: what
  // is selected, else what has the focus, else the top of the window. Not all browsers do so by
  // themselves. The top of the page stays the top.
  const inPlace = work => {
    const isSeen = element => {
      const box = element.getBoundingClientRect();
      return box.bottom > 0 && box.top < innerHeight;
    };
    const selection = getSelection();
    const held = [selection.isCollapsed ? null : selection.anchorNode?.parentElement, document.activeElement]
      .filter(element => element && main.contains(element) && element !== main && isSeen(element));
    const seen = scrollY === 0 ? [] :
      [...held, ...[...main.querySelectorAll("tbody tr, h2, figure")].filter(isSeen).slice(0, 20)]
        .map(element => [element, element.getBoundingClientRect().top]);
    work();
    const [mark, top] = seen.find(([element]) => element.isConnected) ?? [];
    const moved = mark ? mark.getBoundingClientRect().top - top : 0;
    if (moved !== 0) scrollBy({ top: moved, behavior: "instant" });
  };

  // The sections whose tables changed, by their headings; the plot moves with the time.
  const changedSections = fresh => [...fresh.querySelectorAll("section")]
    .filter(section => section.id !== "size" &&
      document.getElementById(section.id)?.textContent !== section.textContent)
    .map(section => section.querySelector("h2").textContent);

  const show = html => {
    const fresh = new DOMParser().parseFromString(`<main>${html}</main>`, "text/html").querySelector("main");
    fresh.id = main.id;
    fresh.tabIndex = -1;
    const changed = changedSections(fresh);
    inPlace(() => become(main, fresh));
    if (changed.length > 0 && performance.now() - saidAt >= kBetweenNews) {
      saidAt = performance.now();
      say(`Updated: ${changed.join(", ")}.`);
    }
  };

  const refresh = async () => {
    clearTimeout(timer);
    if (isPaused || document.hidden) return;
    try {
      const answer = await fetch("/overview", { headers: tag ? { "If-None-Match": tag } : {} });
      if (answer.status === 403) return location.replace("/");
      if (!answer.ok && answer.status !== 304) throw new Error(answer.status);
      const html = answer.status === 304 ? "" : await answer.text();
      if (isPaused) return;
      if (html) show(html);
      tag = answer.headers.get("ETag") ?? "";
      asOf.textContent = answer.headers.get("X-As-Of") ?? asOf.textContent;
      if (isAway) say("The service answers again.");
      isAway = false;
    } catch {
      if (!isAway) say("Not up to date: the service does not answer. The page tries again.");
      isAway = true;
    }
    timer = setTimeout(refresh, kEvery);
  };

  pause.hidden = false;
  pause.addEventListener("click", () => {
    isPaused = !isPaused;
    pause.setAttribute("aria-pressed", isPaused);
    if (!isPaused) refresh();
  });
  document.addEventListener("visibilitychange", refresh);
  timer = setTimeout(refresh, kEvery);
})();
