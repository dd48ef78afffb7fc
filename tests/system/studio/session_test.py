"""What the studio's page does when the server ends and starts again."""

import secrets
import unittest

import support


class SessionTest(support.StudioTest):
    token = secrets.token_hex(32)
    port = support.free_port()

    def test_the_page_comes_back_when_the_server_is_started_again(self):
        page = self.page
        page.set_slider("saturation", 0)
        page.go_to(9)
        self.assertEqual(self.server.stop(), 0)
        page.wait(lambda: page.find("#connection").is_displayed(), "it is not said that the server is gone")
        self.assertIn("lost", page.text("#connection-text"))
        # What failed meanwhile is no fault of the page.
        page.click("#on")
        page.complaints()
        type(self).server = support.Server(self.clip, "cc3.fx", looks=self.folder, port=self.port, token=self.token)
        page.wait(lambda: not page.find("#connection").is_displayed(), "the page did not come back")
        page.complaints()
        # The new server knows nothing of the old one's chain, and the page shows what is.
        page.wait(lambda: page.find("[data-parameter=saturation] input.number").get_attribute("value") == "1.00",
                  "the control shows the old server's value")
        page.wait(lambda: page.picture()["frame"] == 0, "the new server's frame is not shown")
        page.set_slider("saturation", 2)
        page.go_to(31)
        self.assertEqual(page.codes(20, 20)["before"][3], support.luma_of(31))
        expected = support.convert(self.clip, 31, "--effect", "cc3.fx", "--set", "saturation=2")
        self.assertEqual(page.codes(301, 99)["after"][:3], list(expected[99, 301]))

    def test_the_page_outlives_a_server_that_is_killed_while_it_plays(self):
        page = self.page
        page.set_slider("saturation", 2)
        before = sorted(self.folder.rglob("*"))
        page.click("#play")
        page.wait(lambda: page.studio("studio.state.playing") and page.picture()["frame"] > 5, "it does not play")
        self.server.kill()
        page.wait(lambda: page.find("#connection").is_displayed(), "it is not said that the server is gone")
        self.assertIn("The connection to the server is lost. What is shown is the last picture.", page.text("#connection-text"))
        drawn = page.run("""
            const canvas = document.getElementById('picture');
            const codes = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data;
            return new Set(codes).size;""")
        self.assertGreater(drawn, 100, "the last picture is gone")
        self.assertEqual(sorted(self.folder.rglob("*")), before)
        page.complaints()
        type(self).server = support.Server(self.clip, "cc3.fx", looks=self.folder, port=self.port, token=self.token)
        page.wait(lambda: not page.find("#connection").is_displayed(), "the page did not come back")
        page.complaints()
        page.wait(lambda: page.studio("studio.state.playing") is False, "the new server's state is not shown")
        page.wait(lambda: page.picture()["frame"] == 0, "the new server's frame is not shown")
        page.click("#play")
        page.wait(lambda: page.picture()["frame"] > 5, "it does not play again")
        page.click("#play")
        page.wait(lambda: not page.studio("studio.state.playing"), "it plays on")


if __name__ == "__main__":
    unittest.main()
